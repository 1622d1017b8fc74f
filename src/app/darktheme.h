#pragma once
// Fusion with a dark neutral-grey palette: no tint of its own, so the interface never colours
// how a photo is judged. Colour is left to the labels.
class QApplication;

namespace DarkTheme {
void apply(QApplication &app);
}
