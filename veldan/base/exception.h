#pragma once
// TException: an identifier and a text, for callers that prefer to throw.
//
// The library itself reports failure by return values and never throws this.

#include <cstdint>
#include <exception>
#include <string>

namespace veldan {

class TException : public std::exception {
  public:
    TException(uint32_t id, const char* text) : fID(id), fText(text ? text : "") {}
    explicit TException(const char* text) : TException(0, text) {}

    uint32_t ID() const { return fID; }
    const char* String() const { return fText.c_str(); }
    const char* what() const noexcept override { return fText.c_str(); }

  private:
    uint32_t fID;
    std::string fText;
};

}  // namespace veldan
