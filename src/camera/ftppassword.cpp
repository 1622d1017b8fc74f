#include "ftppassword.h"

#include "util/settings.h"

#include <QRandomGenerator>
#include <QSettings>

namespace FTPPassword {

QString generate()
{
    // The system generator is the kernel's cryptographic source; bounded() draws without bias.
    constexpr int size = int(sizeof(kAlphabet) - 1);
    QRandomGenerator *random = QRandomGenerator::system();
    QString out;
    out.reserve(kLength);
    for (int i = 0; i < kLength; ++i)
        out.append(QLatin1Char(kAlphabet[random->bounded(size)]));
    return out;
}

Loaded load(QSettings &settings)
{
    const QString stored = settings.value(Settings::camFtpPassword.name()).toString();
    if (stored.size() >= kLength)
        return {stored, false};
    Loaded fresh{generate(), !stored.isEmpty()};
    settings.setValue(Settings::camFtpPassword.name(), fresh.password);
    settings.sync();
    return fresh;
}

QString renewalNotice()
{
    return QStringLiteral("Por seguridad, la contraseña es nueva y más larga: ponla otra vez en el menú FTP de la cámara.");
}

} // namespace FTPPassword
