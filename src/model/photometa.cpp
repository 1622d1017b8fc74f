#include "photometa.h"

#include <QHash>

namespace {
// Cameras write their maker's company name; people know the brand.
QString brandOf(const QString &make)
{
    static const QHash<QString, QString> brands{
        {"eastman kodak company", "Kodak"},        {"olympus optical co.,ltd", "OLYMPUS"},
        {"olympus imaging corp.", "OLYMPUS"},      {"olympus corporation", "OLYMPUS"},
        {"om digital solutions", "OM System"},     {"nikon corporation", "NIKON"},
        {"minolta co., ltd.", "Minolta"},          {"konica minolta camera, inc.", "Konica Minolta"},
        {"pentax corporation", "PENTAX"},          {"ricoh imaging company, ltd.", "RICOH"},
        {"samsung techwin", "Samsung"},            {"leica camera ag", "Leica"},
        {"seiko epson corp.", "Epson"},            {"casio computer co.,ltd.", "CASIO"},
        {"fujifilm corporation", "FUJIFILM"},      {"sony corporation", "SONY"},
        {"panasonic corporation", "Panasonic"},    {"hmd global", "Nokia"},
    };
    const QString key = make.trimmed().toLower();
    const auto it = brands.constFind(key);
    return it != brands.constEnd() ? *it : make.trimmed();
}
} // namespace

QString PhotoMeta::cameraName() const
{
    const QString m = model.trimmed();
    const QString brand = brandOf(make);
    if (m.isEmpty())
        return brand;
    if (brand.isEmpty())
        return m;
    // "Canon" + "Canon EOS R6" → "Canon EOS R6"; "NIKON CORPORATION" + "NIKON Z 9" → "NIKON Z 9"
    const QString firstWord = brand.section(QLatin1Char(' '), 0, 0);
    if (m.startsWith(firstWord, Qt::CaseInsensitive))
        return m;
    return brand + QLatin1Char(' ') + m;
}
