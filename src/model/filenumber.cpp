#include "filenumber.h"

std::optional<int> fileNumber(QStringView name)
{
    // Walk back from the end: the last run is the first one met.
    qsizetype end = name.size();
    while (end > 0 && !(name[end - 1] >= u'0' && name[end - 1] <= u'9'))
        --end;
    if (end == 0)
        return std::nullopt;
    int value = 0;
    int scale = 1;
    for (qsizetype i = end - 1, taken = 0; i >= 0 && taken < 9 && name[i] >= u'0' && name[i] <= u'9'; --i, ++taken) {
        value += (name[i].unicode() - u'0') * scale;
        scale *= 10;   // 10^9 at most: within int
    }
    return value;
}
