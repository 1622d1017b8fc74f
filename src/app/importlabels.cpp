#include "importlabels.h"

#include <QLabel>

namespace ImportLabels {

QLabel *dim(const QString &text, QWidget *parent)
{
    auto *l = new QLabel(text, parent);
    l->setWordWrap(true);
    l->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    l->setStyleSheet(QStringLiteral("color: #9a9a9a;"));
    return l;
}

QLabel *section(const QString &text, QWidget *parent)
{
    auto *l = new QLabel(text, parent);
    QFont f = l->font();
    f.setBold(true);
    l->setFont(f);
    l->setContentsMargins(0, 6, 0, 0);
    l->setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    return l;
}

QLabel *heading(const QString &text, double scale, QWidget *parent)
{
    auto *l = new QLabel(text, parent);
    QFont f = l->font();
    f.setPointSizeF(f.pointSizeF() * scale);
    f.setBold(true);
    l->setFont(f);
    return l;
}

} // namespace ImportLabels
