#include "veldan/core/message.h"

#include <gtest/gtest.h>

#include <QBuffer>
#include <QByteArray>
#include <QObject>
#include <memory>
#include <random>
#include <string>

using veldan::TMessage;
using veldan::TRect;

namespace {

// Builds flattened bytes by hand, for inputs that Flatten would never write.
class TFlatBytes {
  public:
    TFlatBytes& U8(uint8_t value) {
        fBody.append(char(value));
        return *this;
    }
    TFlatBytes& U32(uint32_t value) {
        for (int shift = 24; shift >= 0; shift -= 8) U8(uint8_t(value >> shift));
        return *this;
    }
    TFlatBytes& Name(const std::string& name) {
        U8(uint8_t(name.size()));
        fBody.append(name.data(), qsizetype(name.size()));
        return *this;
    }
    TFlatBytes& Field(const std::string& name, uint32_t type, uint32_t count) {
        return Name(name).U32(type).U32(count);
    }
    // Header with the true body size.
    QByteArray Flat() const { return Flat(uint32_t(fBody.size())); }
    QByteArray Flat(uint32_t announcedSize) const {
        TFlatBytes header;
        header.U32('QMF1').U32(announcedSize);
        return header.fBody + fBody;
    }

  private:
    QByteArray fBody;
};

TMessage every_type_message() {
    TMessage inner('innr');
    inner.AddString("Leaf", "inside");
    inner.AddInt32("Depth", 2);

    TMessage message('plse');
    message.AddBool("Flag", true);
    message.AddBool("Flag", false);
    message.AddInt32("Int32", -123456);
    message.AddInt64("Int64", int64_t(1) << 40);
    message.AddFloat("Float", 200.5f);
    message.AddDouble("Double", -1.0e300);
    message.AddString("String", "Ver 5.34");
    message.AddString("String", "");
    message.AddString("String", std::string("\x83\x7e\x83\x66\x83\x42", 6));
    message.AddRect("Rect", TRect{5, 24, 300, 250});
    message.AddRef("refs", "/home/user/songs/one.mid");
    message.AddMessage("Nested", inner);
    message.AddMessage("Nested", TMessage('empt'));
    return message;
}

QByteArray flatten(const TMessage& message) {
    QByteArray data;
    EXPECT_TRUE(message.Flatten(&data));
    return data;
}

}  // namespace

TEST(MessageCodes, FourCharacterLiteralsPackBigEndian) {
    EXPECT_EQ(uint32_t('plse'), 0x706c7365u);
    EXPECT_EQ(TMessage('_RRC').what, 0x5f525243u);
}

TEST(MessageFields, EveryTypeIsFoundAsItWasAdded) {
    const TMessage message = every_type_message();
    bool flag = false;
    int32_t int32 = 0;
    int64_t int64 = 0;
    float single = 0;
    double dbl = 0;
    std::string text;
    TRect rect;
    std::filesystem::path ref;
    TMessage nested;
    EXPECT_TRUE(message.FindBool("Flag", &flag));
    EXPECT_TRUE(flag);
    EXPECT_TRUE(message.FindInt32("Int32", &int32));
    EXPECT_EQ(int32, -123456);
    EXPECT_TRUE(message.FindInt64("Int64", &int64));
    EXPECT_EQ(int64, int64_t(1) << 40);
    EXPECT_TRUE(message.FindFloat("Float", &single));
    EXPECT_EQ(single, 200.5f);
    EXPECT_TRUE(message.FindDouble("Double", &dbl));
    EXPECT_EQ(dbl, -1.0e300);
    EXPECT_TRUE(message.FindString("String", &text));
    EXPECT_EQ(text, "Ver 5.34");
    EXPECT_TRUE(message.FindRect("Rect", &rect));
    EXPECT_EQ(rect, (TRect{5, 24, 300, 250}));
    EXPECT_TRUE(message.FindRef("refs", &ref));
    EXPECT_EQ(ref, "/home/user/songs/one.mid");
    EXPECT_TRUE(message.FindMessage("Nested", &nested));
    EXPECT_EQ(nested.what, uint32_t('innr'));
    EXPECT_TRUE(nested.FindString("Leaf", &text));
    EXPECT_EQ(text, "inside");
}

TEST(MessageFields, SeveralValuesUnderOneNameKeepTheirOrder) {
    const TMessage message = every_type_message();
    EXPECT_EQ(message.CountValues("String"), 3);
    std::string text;
    EXPECT_TRUE(message.FindString("String", 1, &text));
    EXPECT_EQ(text, "");
    EXPECT_TRUE(message.FindString("String", 2, &text));
    EXPECT_EQ(text.size(), 6u);
    bool flag = true;
    EXPECT_TRUE(message.FindBool("Flag", 1, &flag));
    EXPECT_FALSE(flag);
    TMessage nested;
    EXPECT_TRUE(message.FindMessage("Nested", 1, &nested));
    EXPECT_EQ(nested.what, uint32_t('empt'));
    EXPECT_TRUE(nested.IsEmpty());
}

TEST(MessageFields, FindLeavesTheTargetUntouchedWhenMissingOfAnotherTypeOrPastTheEnd) {
    const TMessage message = every_type_message();
    int32_t value = 77;
    EXPECT_FALSE(message.FindInt32("Absent", &value));
    EXPECT_FALSE(message.FindInt32("Int64", &value));
    EXPECT_FALSE(message.FindInt32("Int32", 1, &value));
    EXPECT_FALSE(message.FindInt32("Int32", -1, &value));
    EXPECT_EQ(value, 77);
    std::string text = "default";
    EXPECT_FALSE(message.FindString("refs", &text));
    EXPECT_EQ(text, "default");
    TMessage nested('keep');
    EXPECT_FALSE(message.FindMessage("String", &nested));
    EXPECT_EQ(nested.what, uint32_t('keep'));
}

TEST(MessageFields, ANameHoldsOneTypeOnly) {
    TMessage message;
    EXPECT_TRUE(message.AddInt32("Value", 1));
    EXPECT_FALSE(message.AddInt64("Value", 2));
    EXPECT_FALSE(message.AddString("Value", "3"));
    EXPECT_EQ(message.CountValues("Value"), 1);
    EXPECT_FALSE(message.ReplaceInt64("Value", 0, 5));
}

TEST(MessageFields, NamesMustBeOneTo255BytesAndRefsAbsolute) {
    TMessage message;
    EXPECT_FALSE(message.AddInt32("", 1));
    EXPECT_FALSE(message.AddInt32(std::string(256, 'n'), 1));
    EXPECT_TRUE(message.AddInt32(std::string(255, 'n'), 1));
    EXPECT_FALSE(message.AddRef("refs", "songs/relative.mid"));
    EXPECT_FALSE(message.AddRef("refs", ""));
    EXPECT_TRUE(message.AddRef("refs", "/abs.mid"));
    EXPECT_FALSE(message.ReplaceRef("refs", 0, "relative.mid"));
    EXPECT_EQ(message.CountValues("refs"), 1);
}

TEST(MessageFields, ReplaceRemoveAndInfoWork) {
    TMessage message;
    message.AddString("CMO0", "Synth A");
    message.AddString("CMO0", "Synth B");
    message.AddString("CMO0", "Synth C");
    EXPECT_TRUE(message.ReplaceString("CMO0", 1, "Synth X"));
    EXPECT_FALSE(message.ReplaceString("CMO0", 3, "past the end"));
    EXPECT_TRUE(message.RemoveData("CMO0", 0));
    std::string first;
    message.FindString("CMO0", &first);
    EXPECT_EQ(first, "Synth X");

    uint32_t type = 0;
    int32_t count = 0;
    EXPECT_TRUE(message.GetInfo("CMO0", &type, &count));
    EXPECT_EQ(type, veldan::kStringType);
    EXPECT_EQ(count, 2);

    EXPECT_TRUE(message.RemoveData("CMO0", 1));
    EXPECT_TRUE(message.RemoveData("CMO0", 0));
    EXPECT_FALSE(message.HasField("CMO0"));
    EXPECT_FALSE(message.RemoveName("CMO0"));
    EXPECT_FALSE(message.GetInfo("CMO0", &type, &count));
}

TEST(MessageFields, APointerToAQObjectReadsNullOnceTheObjectIsGone) {
    auto object = std::make_unique<QObject>();
    int plain = 0;
    TMessage message;
    message.AddPointer("Target", object.get());
    message.AddPointer("Plain", &plain);
    const TMessage copy = message;

    void* found = nullptr;
    EXPECT_TRUE(copy.FindPointer("Target", &found));
    EXPECT_EQ(found, object.get());
    object.reset();
    found = &plain;
    EXPECT_TRUE(copy.FindPointer("Target", &found));
    EXPECT_EQ(found, nullptr);
    EXPECT_TRUE(copy.FindPointer("Plain", &found));
    EXPECT_EQ(found, &plain);
}

TEST(MessageFlattening, EveryTypeRoundTrips) {
    const TMessage original = every_type_message();
    TMessage read;
    std::string error;
    ASSERT_TRUE(read.Unflatten(flatten(original), &error)) << error;
    EXPECT_EQ(read, original);
    EXPECT_EQ(read.CountNames(), original.CountNames());
}

TEST(MessageFlattening, ExtremeNumbersAndDeepNestingWithinTheLimitRoundTrip) {
    TMessage original('xtrm');
    original.AddInt32("Min", INT32_MIN);
    original.AddInt64("Min", INT64_MIN);
    original.AddFloat("Tiny", 1.0e-40f);
    original.AddDouble("Inf", HUGE_VAL);
    TMessage deepest('leaf');
    for (int depth = 0; depth < TMessage::kMaxDepth; depth++) {
        TMessage wrapper('wrap');
        wrapper.AddMessage("Inner", deepest);
        deepest = wrapper;
    }
    original.AddMessage("Deep", deepest);  // kMaxDepth + 1 levels below original: too deep
    QByteArray data;
    EXPECT_FALSE(original.Flatten(&data));

    original.RemoveName("Deep");
    TMessage unwrapped;
    deepest.FindMessage("Inner", &unwrapped);
    original.AddMessage("Deep", unwrapped);  // exactly kMaxDepth levels
    TMessage read;
    std::string error;
    ASSERT_TRUE(read.Unflatten(flatten(original), &error)) << error;
    EXPECT_EQ(read, original);
}

TEST(MessageFlattening, PointerFieldsStayInTheProcess) {
    TMessage original('ptrs');
    int target = 0;
    original.AddPointer("Target", &target);
    original.AddInt32("Kept", 3);
    TMessage read;
    ASSERT_TRUE(read.Unflatten(flatten(original)));
    EXPECT_FALSE(read.HasField("Target"));
    EXPECT_EQ(read.CountValues("Kept"), 1);
}

TEST(MessageFlattening, ADeviceYieldsOneMessageAtATime) {
    QBuffer buffer;
    buffer.open(QIODevice::ReadWrite);
    const TMessage first = every_type_message();
    const TMessage second('2nd ');
    ASSERT_TRUE(first.Flatten(&buffer));
    ASSERT_TRUE(second.Flatten(&buffer));
    buffer.seek(0);
    TMessage read;
    ASSERT_TRUE(read.Unflatten(&buffer));
    EXPECT_EQ(read, first);
    ASSERT_TRUE(read.Unflatten(&buffer));
    EXPECT_EQ(read, second);
    std::string error;
    EXPECT_FALSE(read.Unflatten(&buffer, &error));
    EXPECT_EQ(read, second);
    EXPECT_FALSE(error.empty());
}

TEST(MessageUnflattening, EveryTruncationFailsAndLeavesTheMessageAsItWas) {
    const QByteArray data = flatten(every_type_message());
    for (qsizetype length = 0; length < data.size(); length++) {
        TMessage target('orig');
        target.AddInt32("Kept", 1);
        const TMessage before = target;
        QBuffer device;
        device.setData(data.left(length));
        device.open(QIODevice::ReadOnly);
        EXPECT_FALSE(target.Unflatten(data.left(length))) << "length " << length;
        EXPECT_FALSE(target.Unflatten(&device)) << "length " << length;
        EXPECT_EQ(target, before) << "length " << length;
    }
}

TEST(MessageUnflattening, RandomGarbageFailsWithAReason) {
    std::mt19937 random(12345);
    for (int round = 0; round < 500; round++) {
        QByteArray garbage(qsizetype(random() % 200), '\0');
        for (char& byte : garbage) byte = char(random());
        TMessage target;
        std::string error;
        EXPECT_FALSE(target.Unflatten(garbage, &error));
        EXPECT_FALSE(error.empty());
    }
}

TEST(MessageUnflattening, FlippedBytesInARealMessageNeverCrashOrHalfLoad) {
    const TMessage original = every_type_message();
    const QByteArray data = flatten(original);
    for (qsizetype at = 0; at < data.size(); at++) {
        QByteArray damaged = data;
        damaged[at] = char(damaged[at] ^ 0xFF);
        TMessage target('orig');
        if (target.Unflatten(damaged)) {
            // Some bytes (a value's contents) may change without breaking the form.
            EXPECT_EQ(target.CountNames(), original.CountNames()) << "byte " << at;
        } else {
            EXPECT_EQ(target, TMessage('orig')) << "byte " << at;
        }
    }
}

TEST(MessageUnflattening, HostileSizesAndCountsAreRefusedBeforeAllocating) {
    struct TCase {
        const char* what;
        QByteArray bytes;
    };
    const TCase cases[] = {
        {"body size over the limit", TFlatBytes().U32('what').U32(0).Flat(0xFFFFFFF0u)},
        {"body size beyond the data", TFlatBytes().U32('what').U32(0).Flat(1000)},
        {"field count without fields", TFlatBytes().U32('what').U32(0xFFFFFFFFu).Flat()},
        {"value count beyond the data",
         TFlatBytes().U32('what').U32(1).Field("Big", 'LONG', 0x7FFFFFFF).U32(1).Flat()},
        {"string length beyond the data",
         TFlatBytes().U32('what').U32(1).Field("Str", 'CSTR', 1).U32(0xFFFFFFFFu).Flat()},
        {"zero values", TFlatBytes().U32('what').U32(1).Field("None", 'LONG', 0).Flat()},
        {"empty name", TFlatBytes().U32('what').U32(1).Field("", 'LONG', 1).U32(5).Flat()},
        {"duplicate names", TFlatBytes()
                                .U32('what')
                                .U32(2)
                                .Field("Twice", 'LONG', 1)
                                .U32(1)
                                .Field("Twice", 'LONG', 1)
                                .U32(2)
                                .Flat()},
        {"unknown type", TFlatBytes().U32('what').U32(1).Field("T", 'ZZZZ', 1).U32(0).Flat()},
        {"pointer from a file",
         TFlatBytes().U32('what').U32(1).Field("P", 'PNTR', 1).U32(0).U32(0x1000).Flat()},
        {"bool that is neither 0 nor 1",
         TFlatBytes().U32('what').U32(1).Field("B", 'BOOL', 1).U8(2).Flat()},
        {"relative file reference", TFlatBytes()
                                        .U32('what')
                                        .U32(1)
                                        .Field("R", 'RREF', 1)
                                        .U32(3)
                                        .U8('a')
                                        .U8('/')
                                        .U8('b')
                                        .Flat()},
        {"trailing bytes", TFlatBytes().U32('what').U32(0).U8(0).Flat()},
        {"foreign magic", QByteArray("PMF1\0\0\0\0", 8)},
    };
    for (const TCase& hostile : cases) {
        TMessage target('orig');
        std::string error;
        EXPECT_FALSE(target.Unflatten(hostile.bytes, &error)) << hostile.what;
        EXPECT_FALSE(error.empty()) << hostile.what;
        EXPECT_EQ(target, TMessage('orig')) << hostile.what;
    }
}

TEST(MessageUnflattening, NestingBeyondTheLimitIsRefused) {
    // Each level: what, one field "N" holding one message; the innermost has no fields.
    TFlatBytes bytes;
    const int levels = TMessage::kMaxDepth + 1;
    for (int level = 0; level < levels; level++) bytes.U32('nest').U32(1).Field("N", 'MSGG', 1);
    bytes.U32('leaf').U32(0);
    TMessage target;
    std::string error;
    EXPECT_FALSE(target.Unflatten(bytes.Flat(), &error));
    EXPECT_NE(error.find("nested"), std::string::npos) << error;
}

TEST(MessageUnflattening, TooManyValuesInAllAreRefused) {
    // Many one-byte bools: small input, but beyond the value budget.
    const uint32_t count = uint32_t(TMessage::kMaxValues) + 1;
    TFlatBytes bytes;
    bytes.U32('many').U32(1).Field("B", 'BOOL', count);
    for (uint32_t i = 0; i < count; i++) bytes.U8(1);
    TMessage target;
    std::string error;
    EXPECT_FALSE(target.Unflatten(bytes.Flat(), &error));
    EXPECT_NE(error.find("values"), std::string::npos) << error;
}
