#include "emptystate.h"

#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

EmptyState::EmptyState(QWidget *parent)
    : QWidget(parent)
    , _title(new QLabel(this))
    , _detail(new QLabel(this))
    , _button(new QPushButton(this))
{
    setObjectName(QStringLiteral("emptyState"));
    setAttribute(Qt::WA_StyledBackground);
    auto *layout = new QVBoxLayout(this);
    layout->addStretch(3);
    _title->setObjectName(QStringLiteral("emptyTitle"));
    _title->setAlignment(Qt::AlignCenter);
    _title->setWordWrap(true);
    QFont f = _title->font();
    f.setPointSizeF(f.pointSizeF() * 1.35);
    _title->setFont(f);
    layout->addWidget(_title);
    _detail->setObjectName(QStringLiteral("emptyDetail"));
    _detail->setAlignment(Qt::AlignCenter);
    _detail->setWordWrap(true);
    _detail->setForegroundRole(QPalette::PlaceholderText);
    layout->addSpacing(6);
    layout->addWidget(_detail);
    layout->addSpacing(14);
    _button->setObjectName(QStringLiteral("emptyAction"));
    _button->setFocusPolicy(Qt::NoFocus);
    layout->addWidget(_button, 0, Qt::AlignHCenter);
    layout->addStretch(4);
    connect(_button, &QPushButton::clicked, this, [this] {
        if (_kind == AllFiltered)
            emit clearFilterRequested();
        else
            emit openFolderRequested();
    });
    setKind(NoFolder);
}

void EmptyState::setKind(Kind kind, const QString &detail)
{
    _kind = kind;
    QString title, line, button = QStringLiteral("Abrir carpeta…");
    switch (kind) {
    case NoFolder:
        title = QStringLiteral("Abre una carpeta o suelta aquí una carpeta de imágenes");
        line = QStringLiteral("Archivo › Abrir carpeta… (Ctrl+O)");
        break;
    case EmptyFolder:
        title = QStringLiteral("Esta carpeta no tiene imágenes");
        button.clear();
        break;
    case AccessDenied:
        title = QStringLiteral("No tienes permiso para leer esta carpeta.");
        line = QStringLiteral("Cambia sus permisos o abre otra carpeta.");
        break;
    case FolderMissing:
        title = QStringLiteral("Esta carpeta ya no existe");
        line = QStringLiteral("Puede que se haya movido o borrado, o que el disco se haya desconectado.");
        break;
    case AllFiltered:
        title = QStringLiteral("Ninguna imagen cumple los filtros");
        button = QStringLiteral("Quitar filtros");
        break;
    }
    _title->setText(title);
    _detail->setText(detail.isEmpty() ? line : detail);
    _detail->setVisible(!_detail->text().isEmpty());
    _button->setText(button);
    _button->setVisible(!button.isEmpty());
}

QString EmptyState::title() const { return _title->text(); }
QString EmptyState::detail() const { return _detail->text(); }
