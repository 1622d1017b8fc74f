#include "naturalcompare.h"

#include <QCollator>

int naturalCompare(const QString &a, const QString &b)
{
    // QCollator is not thread-safe to share; one per thread.
    thread_local QCollator collator = [] {
        QCollator c(QLocale(QLocale::Spanish, QLocale::Spain));
        c.setNumericMode(true);
        c.setCaseSensitivity(Qt::CaseInsensitive);
        return c;
    }();
    const int r = collator.compare(a, b);
    if (r != 0)
        return r;
    // Equal for the collator ("a.jpg" vs "A.jpg"): fall back to code points for a total order.
    return QString::compare(a, b, Qt::CaseSensitive);
}
