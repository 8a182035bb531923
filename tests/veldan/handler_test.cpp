#include "veldan/core/handler.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <memory>
#include <thread>
#include <vector>

using veldan::TMessage;

namespace {

constexpr uint32_t kMsgAskSave = 'asks';
constexpr uint32_t kMsgSaved = 'savd';

QCoreApplication* application() {
    static int argc = 1;
    static char name[] = "veldan_core_msg_tests";
    static char* argv[] = {name, nullptr};
    static QCoreApplication* app = QCoreApplication::instance() ? QCoreApplication::instance()
                                                                : new QCoreApplication(argc, argv);
    return app;
}

class TRecorder : public veldan::THandler {
  public:
    std::vector<TMessage> received;

    void MessageReceived(TMessage* message) override { received.push_back(*message); }
};

class MessagePosting : public ::testing::Test {
  protected:
    void SetUp() override { application(); }
    void Deliver() { QCoreApplication::sendPostedEvents(); }
};

}  // namespace

TEST_F(MessagePosting, APostedMessageArrivesOnceTheLoopRuns) {
    TRecorder recorder;
    TMessage message('plse');
    message.AddInt32("SysReset", 2);
    EXPECT_TRUE(veldan::post_message(&recorder, message));
    EXPECT_TRUE(recorder.received.empty());
    Deliver();
    ASSERT_EQ(recorder.received.size(), 1u);
    EXPECT_EQ(recorder.received[0], message);
}

TEST_F(MessagePosting, MessagesFromAnotherThreadArriveInOrder) {
    TRecorder recorder;
    std::thread sender([&recorder] {
        for (int32_t i = 0; i < 100; i++) {
            TMessage message('seq ');
            message.AddInt32("i", i);
            veldan::post_message(&recorder, message);
        }
    });
    sender.join();
    Deliver();
    ASSERT_EQ(recorder.received.size(), 100u);
    for (int32_t i = 0; i < 100; i++) {
        int32_t value = -1;
        recorder.received[size_t(i)].FindInt32("i", &value);
        EXPECT_EQ(value, i);
    }
}

TEST_F(MessagePosting, ANullTargetIsRefused) {
    EXPECT_FALSE(veldan::post_message(nullptr, TMessage('none')));
}

TEST_F(MessagePosting, OtherEventsStillReachTheQtBase) {
    bool destroyed = false;
    TRecorder* recorder = new TRecorder;
    QObject::connect(recorder, &QObject::destroyed, [&destroyed] { destroyed = true; });
    recorder->deleteLater();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(destroyed);
}

TEST_F(MessagePosting, TheNextMessageIsSentOnByTheReply) {
    // A quit waits for an "ask to save" dialog; the dialog's reply carries the quit on.
    TRecorder app;
    TRecorder dialog;
    TMessage ask(kMsgAskSave);
    ASSERT_TRUE(veldan::add_next_msg(&ask, TMessage(veldan::kMsgQuitRequested), &app));
    veldan::post_message(&dialog, ask);
    Deliver();
    ASSERT_EQ(dialog.received.size(), 1u);

    TMessage reply(kMsgSaved);
    EXPECT_TRUE(veldan::copy_next_msg(&reply, dialog.received[0]));
    EXPECT_TRUE(veldan::invoke_next_msg(&reply));
    Deliver();
    ASSERT_EQ(app.received.size(), 1u);
    EXPECT_EQ(app.received[0].what, veldan::kMsgQuitRequested);
}

TEST_F(MessagePosting, AMessageWithOnlyOneNextFieldSendsNothing) {
    TRecorder target;
    TMessage onlyMessage('asks');
    onlyMessage.AddMessage(veldan::kNextMsgField, TMessage(veldan::kMsgQuitRequested));
    TMessage onlyTarget('asks');
    onlyTarget.AddPointer(veldan::kNextMsgTargetField, &target);

    EXPECT_FALSE(veldan::invoke_next_msg(&onlyMessage));
    EXPECT_FALSE(veldan::invoke_next_msg(&onlyTarget));
    EXPECT_FALSE(veldan::invoke_next_msg(nullptr));
    TMessage reply('rply');
    EXPECT_FALSE(veldan::copy_next_msg(&reply, onlyMessage));
    EXPECT_FALSE(veldan::copy_next_msg(&reply, onlyTarget));
    EXPECT_TRUE(reply.IsEmpty());
    Deliver();
    EXPECT_TRUE(target.received.empty());
}

TEST_F(MessagePosting, CopyingReplacesEarlierNextFields) {
    TRecorder first;
    TRecorder second;
    TMessage reply('rply');
    veldan::add_next_msg(&reply, TMessage('old '), &first);
    TMessage request('rqst');
    veldan::add_next_msg(&request, TMessage('new '), &second);
    ASSERT_TRUE(veldan::copy_next_msg(&reply, request));
    EXPECT_EQ(reply.CountValues(veldan::kNextMsgField), 1);
    EXPECT_TRUE(veldan::invoke_next_msg(&reply));
    Deliver();
    EXPECT_TRUE(first.received.empty());
    ASSERT_EQ(second.received.size(), 1u);
    EXPECT_EQ(second.received[0].what, uint32_t('new '));
}

TEST_F(MessagePosting, ANextMessageForADestroyedTargetIsNotSent) {
    auto target = std::make_unique<TRecorder>();
    TMessage request('rqst');
    veldan::add_next_msg(&request, TMessage('late'), target.get());
    TMessage reply('rply');
    ASSERT_TRUE(veldan::copy_next_msg(&reply, request));
    target.reset();
    EXPECT_FALSE(veldan::invoke_next_msg(&request));
    EXPECT_FALSE(veldan::invoke_next_msg(&reply));
}
