#pragma once
// Sizes as every part of the window writes them: Spanish decimals, SI units, one decimal
// ("1,2 GB", "512 bytes"). Any thread.
#include <QLocale>
#include <QString>

inline QString dataSizeText(qint64 bytes)
{
    if (bytes == 1)
        return QStringLiteral("1 byte");   // Qt writes "1 bytes"
    return QLocale(QLocale::Spanish, QLocale::Spain).formattedDataSize(bytes, 1, QLocale::DataSizeSIFormat);
}
