#include "namevalues.h"

NameValues NameValues::sample()
{
    NameValues v;
    v.date = QDateTime(QDate(2024, 5, 18), QTime(14, 32, 7));
    v.seq = 1;
    v.digits = 4;
    v.camera = QStringLiteral("NIKON Z 9");
    v.original = QStringLiteral("DSC_0001");
    v.session = QStringLiteral("Boda Marta y Luis");
    v.folder = QStringLiteral("100NCZ_9");
    return v;
}
