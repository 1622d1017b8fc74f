#include "shortcutsdialog.h"

#include <QDialogButtonBox>
#include <QHeaderView>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

ShortcutsDialog::ShortcutsDialog(QWidget *parent)
    : QDialog(parent)
    , _table(new QTreeWidget(this))
{
    setObjectName(QStringLiteral("shortcutsDialog"));
    setWindowTitle(QStringLiteral("Atajos de teclado"));
    resize(520, 560);
    auto *layout = new QVBoxLayout(this);
    _table->setColumnCount(2);
    _table->setHeaderLabels({QStringLiteral("Tecla"), QStringLiteral("Hace")});
    _table->setRootIsDecorated(false);
    _table->setSelectionMode(QAbstractItemView::NoSelection);
    _table->setFocusPolicy(Qt::NoFocus);
    _table->header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);

    const QList<QPair<const char *, const char *>> rows = {
        {"Flechas, Inicio, Fin, RePág, AvPág", "Mover la imagen actual"},
        {"Mayús + flechas o clic", "Seleccionar un tramo"},
        {"Ctrl + clic", "Añadir o quitar de la selección"},
        {"Espacio", "Cambiar entre cuadrícula e imagen"},
        {"Intro", "Entrar en la subcarpeta; en una imagen, verla en grande"},
        {"Esc", "Volver a la cuadrícula; quitar la selección"},
        {"1 – 8", "Poner ese color; la misma tecla otra vez lo quita"},
        {"0", "Quitar el color"},
        {"Alt + 1 – 5", "Poner esas estrellas; otra vez las quita"},
        {"Alt + 0", "Quitar las estrellas"},
        {"T", "Poner o quitar la bandera"},
        {"[  y  ]", "Girar un cuarto de vuelta a la izquierda / derecha"},
        {"I", "Panel de información"},
        {"Z o clic", "Zoom 100 % en ese punto / encajar (arrastrar desplaza)"},
        {"F", "Punto de enfoque"},
        {"P", "Rendimiento: origen y tiempo de la vista previa"},
        {"Ctrl + O", "Abrir carpeta…"},
        {"Ctrl + Z", "Deshacer el último cambio de marcas"},
        {"Ctrl + Mayús + Z  /  Ctrl + Y", "Rehacer"},
        {"Ctrl + A", "Seleccionar todo"},
        {"Ctrl + Mayús + A", "Deseleccionar"},
        {"Ctrl + F", "Buscar"},
        {"Ctrl + +  /  Ctrl + −", "Miniaturas más grandes / más pequeñas"},
        {"Ctrl + ,", "Ajustes"},
    };
    for (const auto &[key, what] : rows)
        new QTreeWidgetItem(_table, {QString::fromUtf8(key), QString::fromUtf8(what)});
    layout->addWidget(_table);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    buttons->button(QDialogButtonBox::Close)->setText(QStringLiteral("Cerrar"));
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);
}
