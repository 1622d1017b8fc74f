#pragma once
// The receiver's time and size limits. The defaults are the real ones; tests hand in short
// durations and small sizes so the long time-outs and the size rules run in seconds.
#include <chrono>
#include <cstdint>

struct FTPLimits {
    using ms = std::chrono::milliseconds;
    ms loginPause{1000};            // after a wrong password, before the reply
    ms dataOpen{30000};             // for the camera to open the data connection
    ms dataIdle{120000};            // without data during an upload
    ms idleBeforeLogin{60000};      // without a command before login
    ms idleLoggedIn{1200000};       // without a command after login
    ms failureWindow{600000};       // failed logins of an address counted over this span
    ms lockout{600000};             // an address that failed 10 times is refused this long
    std::uint64_t maxFileSize = 17179869184ull;   // 16 GiB
    std::uint64_t minFreeSpace = 536870912ull;    // 512 MiB must be left on the volume
    int maxSessions = 500;          // control connections at once; more are turned away
};
