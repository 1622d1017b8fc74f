#include "xmplabels.h"

#include "model/colorlabel.h"
#include "util/settings.h"

namespace XmpLabels {
namespace {

QStringList usable(const QStringList &list)
{
    return list.size() == 5 ? list : presets().first().labels;
}

} // namespace

const QList<Preset> &presets()
{
    static const QList<Preset> list = {
        // The window's own names of colours 1…5.
        {QStringLiteral("Lightroom en español"),
         {ColorLabel::name(1), ColorLabel::name(2), ColorLabel::name(3), ColorLabel::name(4), ColorLabel::name(5)}},
        {QStringLiteral("Lightroom en inglés"),
         {QStringLiteral("Red"), QStringLiteral("Yellow"), QStringLiteral("Green"), QStringLiteral("Blue"), QStringLiteral("Purple")}},
        {QStringLiteral("Bridge en inglés"),
         {QStringLiteral("Select"), QStringLiteral("Second"), QStringLiteral("Approved"), QStringLiteral("Review"), QStringLiteral("To Do")}},
    };
    return list;
}

QStringList userLabels()
{
    return usable(Settings::adobeLabels.get());
}

QString label(int colour, const QStringList &user)
{
    if (colour >= 1 && colour <= 5)
        return usable(user).at(colour - 1);
    // 6…8 always carry the window's names, whatever the user's list.
    return colour >= 6 && colour <= 8 ? ColorLabel::name(colour) : QString();
}

int colour(const QString &text, const QStringList &user)
{
    const QString wanted = text.trimmed().toLower();
    if (wanted.isEmpty())
        return 0;
    const auto find = [&wanted](const QStringList &list) {
        for (qsizetype i = 0; i < list.size(); ++i)
            if (list.at(i).trimmed().toLower() == wanted)
                return int(i) + 1;
        return 0;
    };
    if (const int c = find(usable(user)))
        return c;
    for (const Preset &p : presets())
        if (const int c = find(p.labels))
            return c;
    if (wanted == QLatin1String("orange"))
        return 6;
    if (wanted == QLatin1String("pink"))
        return 7;
    if (wanted == QLatin1String("gray") || wanted == QLatin1String("grey"))
        return 8;
    return 0;
}

} // namespace XmpLabels
