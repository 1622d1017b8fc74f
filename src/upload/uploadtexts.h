#pragma once
// The one line shown beside a failed upload or check, and which failures are worth another try.
#include <QString>

namespace UploadTexts {

// From the result code first and the shim's error text second.
QString forResult(int code, const QString &shimText);
// Network faults that may heal by themselves (no answer, a cut or stalled connection). A wrong
// password, a refused folder, a bad certificate or a bad name never do.
bool isRetryable(int code);
// The code a transfer returns when its progress callback cancelled it.
inline constexpr int kCancelled = 42;

} // namespace UploadTexts
