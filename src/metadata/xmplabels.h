#pragma once
// The xmp:Label texts of the colour classes, which Lightroom and Bridge match exactly. Colours
// 1…5 take the user's list (one of the presets, or edited); 6…8 have fixed texts. Pure
// functions except userLabels(), which reads the settings; all are safe on any thread.
#include <QList>
#include <QString>
#include <QStringList>

namespace XmpLabels {

struct Preset {
    QString name;          // as the settings page offers it
    QStringList labels;    // colours 1…5
};

// "Lightroom en español" (the default), "Lightroom en inglés", "Bridge en inglés".
const QList<Preset> &presets();

// The list from the settings ("adobeLabels"), or the default when it does not hold 5 texts.
QStringList userLabels();

// The text written for colour 1…8; empty for 0 and out of range.
QString label(int colour, const QStringList &user);

// The colour a label stands for: the user's list, then each preset, then a few English names of
// colours 6…8; 0 when nothing matches. The texts written for 6…8 are deliberately not read back
// here: those sidecars carry photomechanic:ColorClass, which readers consult first.
int colour(const QString &label, const QStringList &user);

} // namespace XmpLabels
