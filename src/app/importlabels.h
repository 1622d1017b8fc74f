#pragma once
// The few label styles the import window's pages share. GUI thread only.
#include <QString>

class QLabel;
class QWidget;

namespace ImportLabels {

// Grey, wrapped explanation text.
QLabel *dim(const QString &text, QWidget *parent);
// A bold section title ("Origen", "Destino"…).
QLabel *section(const QString &text, QWidget *parent);
// A bold title, `scale` times the default size.
QLabel *heading(const QString &text, double scale, QWidget *parent);

} // namespace ImportLabels
