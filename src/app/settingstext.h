#pragma once
// The two kinds of text of the settings pages: a bold heading and a dimmed explanation.
#include <QFont>
#include <QLabel>
#include <QPalette>

namespace SettingsText {

inline QLabel *explanation(const QString &text, QWidget *parent, int indent = 0)
{
    auto *l = new QLabel(text, parent);
    l->setWordWrap(true);
    l->setForegroundRole(QPalette::PlaceholderText);
    l->setContentsMargins(indent, 0, 0, 0);
    return l;
}

inline QLabel *heading(const QString &text, QWidget *parent)
{
    auto *l = new QLabel(text, parent);
    QFont f = l->font();
    f.setBold(true);
    l->setFont(f);
    return l;
}

} // namespace SettingsText
