#include "darktheme.h"

#include <QApplication>
#include <QPalette>
#include <QStyleFactory>

namespace DarkTheme {

void apply(QApplication &app)
{
    app.setStyle(QStyleFactory::create(QStringLiteral("Fusion")));

    const QColor window(0x2b, 0x2b, 0x2b);
    const QColor base(0x1f, 0x1f, 0x1f);
    const QColor text(0xdc, 0xdc, 0xdc);
    const QColor dim(0x8a, 0x8a, 0x8a);
    const QColor disabled(0x6a, 0x6a, 0x6a);
    const QColor button(0x35, 0x35, 0x35);
    const QColor highlight(0x5c, 0x5c, 0x5c);   // grey: selection must not tint either

    QPalette p;
    p.setColor(QPalette::Window, window);
    p.setColor(QPalette::WindowText, text);
    p.setColor(QPalette::Base, base);
    p.setColor(QPalette::AlternateBase, QColor(0x26, 0x26, 0x26));
    p.setColor(QPalette::ToolTipBase, QColor(0x3a, 0x3a, 0x3a));
    p.setColor(QPalette::ToolTipText, text);
    p.setColor(QPalette::PlaceholderText, dim);
    p.setColor(QPalette::Text, text);
    p.setColor(QPalette::Button, button);
    p.setColor(QPalette::ButtonText, text);
    p.setColor(QPalette::BrightText, Qt::white);
    p.setColor(QPalette::Light, QColor(0x48, 0x48, 0x48));
    p.setColor(QPalette::Midlight, QColor(0x3e, 0x3e, 0x3e));
    p.setColor(QPalette::Mid, QColor(0x2f, 0x2f, 0x2f));
    p.setColor(QPalette::Dark, QColor(0x1a, 0x1a, 0x1a));
    p.setColor(QPalette::Shadow, QColor(0x10, 0x10, 0x10));
    p.setColor(QPalette::Highlight, highlight);
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Link, QColor(0xc8, 0xc8, 0xc8));
    p.setColor(QPalette::LinkVisited, QColor(0xa8, 0xa8, 0xa8));
    for (auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText, QPalette::HighlightedText})
        p.setColor(QPalette::Disabled, role, disabled);
    p.setColor(QPalette::Disabled, QPalette::Highlight, QColor(0x40, 0x40, 0x40));
    app.setPalette(p);

    app.setStyleSheet(QStringLiteral(
        "QToolBar { background: #2e2e2e; border: none; border-bottom: 1px solid #232323; spacing: 2px; padding: 3px 6px; }"
        "QToolBar QToolButton { padding: 3px 8px; border-radius: 4px; }"
        "QToolBar QToolButton:hover { background: #3c3c3c; }"
        "QToolBar QToolButton:checked { background: #4a4a4a; }"
        "QToolBar QToolButton:disabled { color: #666; }"
        "#filterBar { background: #272727; border-bottom: 1px solid #202020; }"
        "#filterBar QToolButton { padding: 2px 8px; border-radius: 4px; }"
        "#filterBar QToolButton:hover { background: #383838; }"
        "#filterBar QToolButton:checked { background: #4a4a4a; }"
        "#sidebar, #infoPanel { background: #262626; }"
        "#sidebar QTreeView, #sidebar QListWidget { background: #262626; }"
        "#grid, #singleView, #emptyState { background: #1c1c1c; }"
        "#searchField { border-radius: 4px; padding: 2px 6px; min-width: 180px; }"
        "QStatusBar { background: #262626; border-top: 1px solid #202020; }"
        "QStatusBar QLabel { padding: 0 6px; }"
        "QSplitter::handle { background: #202020; }"
        "QMenu::separator { height: 1px; background: #444; margin: 4px 8px; }"));
}

} // namespace DarkTheme
