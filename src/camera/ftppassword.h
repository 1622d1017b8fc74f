#pragma once
// The password a camera logs in with: 10 characters from an alphabet without look-alikes
// (no i, l, o, 0 or 1), drawn from the system's cryptographic random source without bias.
#include <QString>

class QSettings;

namespace FTPPassword {

inline constexpr char kAlphabet[] = "abcdefghjkmnpqrstuvwxyz23456789";
inline constexpr int kLength = 10;

QString generate();

struct Loaded {
    QString password;
    bool renewed = false;   // a shorter password had been stored and was replaced
};
// The stored password ("cam.ftpPassword") when it has at least 10 characters; otherwise a new one,
// stored at once.
Loaded load(QSettings &settings);

// Shown once after a short password was replaced.
QString renewalNotice();

} // namespace FTPPassword
