#pragma once
// Sets an environment variable for one test and puts the old value back afterwards.

#include <cstdlib>
#include <optional>
#include <string>

class TScopedEnv {
  public:
    // A null value unsets the variable.
    TScopedEnv(const char* name, const char* value) : fName(name) {
        if (const char* old = std::getenv(name)) fOld = old;
        Set(value);
    }
    ~TScopedEnv() { Set(fOld ? fOld->c_str() : nullptr); }
    TScopedEnv(const TScopedEnv&) = delete;
    TScopedEnv& operator=(const TScopedEnv&) = delete;

  private:
    void Set(const char* value) {
        if (value) {
            setenv(fName.c_str(), value, 1);
        } else {
            unsetenv(fName.c_str());
        }
    }

    std::string fName;
    std::optional<std::string> fOld;
};
