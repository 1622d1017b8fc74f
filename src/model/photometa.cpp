#include "photometa.h"

QString PhotoMeta::cameraName() const
{
    const QString m = model.trimmed();
    const QString mk = make.trimmed();
    if (m.isEmpty())
        return mk;
    if (mk.isEmpty())
        return m;
    // "NIKON CORPORATION" + "NIKON Z 9" → "NIKON Z 9"; "Canon" + "Canon EOS R6" → "Canon EOS R6"
    const QString firstWord = mk.section(QLatin1Char(' '), 0, 0);
    if (m.startsWith(firstWord, Qt::CaseInsensitive))
        return m;
    return mk + QLatin1Char(' ') + m;
}
