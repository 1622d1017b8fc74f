#pragma once
// Sizes as every part of the window writes them: Spanish decimals, SI units, one decimal
// ("1,2 GB", "512 bytes"). Any thread.
#include <QLocale>
#include <QString>

inline QString dataSizeText(qint64 bytes)
{
    return QLocale(QLocale::Spanish, QLocale::Spain).formattedDataSize(bytes, 1, QLocale::DataSizeSIFormat);
}
