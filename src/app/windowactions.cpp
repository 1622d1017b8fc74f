#include "windowactions.h"

#include "labelcolors.h"

#include "model/sortkey.h"

namespace {
QList<WindowAction> build()
{
    const auto key = [](QKeyCombination k) { return QList<QKeySequence>{QKeySequence(k)}; };
    QList<WindowAction> t;
    // Archivo
    t += {QStringLiteral("openFolder"), QStringLiteral("Abrir carpeta…"), key(Qt::CTRL | Qt::Key_O), QStringLiteral("Abrir")};
    t += {QStringLiteral("import"), QStringLiteral("Importar imágenes…"), key(Qt::CTRL | Qt::Key_I), QStringLiteral("Importar")};
    t += {QStringLiteral("camera"), QStringLiteral("Cámara…"), {}, QStringLiteral("Cámara")};
    t += {QStringLiteral("copyTo"), QStringLiteral("Copiar a…"), key(Qt::CTRL | Qt::SHIFT | Qt::Key_C)};
    t += {QStringLiteral("moveTo"), QStringLiteral("Mover a…"), key(Qt::CTRL | Qt::SHIFT | Qt::Key_M)};
    t += {QStringLiteral("trash"), QStringLiteral("Mover a la papelera"), key(Qt::Key_Delete)};
    t += {QStringLiteral("quit"), QStringLiteral("Salir"), key(Qt::CTRL | Qt::Key_Q)};
    // Edición
    t += {QStringLiteral("undo"), QStringLiteral("Deshacer"), key(Qt::CTRL | Qt::Key_Z)};
    t += {QStringLiteral("redo"), QStringLiteral("Rehacer"),
          {QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z), QKeySequence(Qt::CTRL | Qt::Key_Y)}};
    t += {QStringLiteral("selectAll"), QStringLiteral("Seleccionar todo"), key(Qt::CTRL | Qt::Key_A)};
    t += {QStringLiteral("invertSelection"), QStringLiteral("Invertir selección"), key(Qt::CTRL | Qt::SHIFT | Qt::Key_I)};
    t += {QStringLiteral("deselect"), QStringLiteral("Deseleccionar"), key(Qt::CTRL | Qt::SHIFT | Qt::Key_A)};
    t += {QStringLiteral("find"), QStringLiteral("Buscar"), key(Qt::CTRL | Qt::Key_F)};
    t += {QStringLiteral("settings"), QStringLiteral("Ajustes…"), key(Qt::CTRL | Qt::Key_Comma)};
    // Marcas
    for (int n = 1; n <= LabelColors::kCount; ++n)
        t += {QStringLiteral("color%1").arg(n), LabelColors::name(n), key(Qt::Key(Qt::Key_0 + n))};
    t += {QStringLiteral("color0"), QStringLiteral("Sin color"), key(Qt::Key_0)};
    for (int n = 1; n <= 5; ++n)
        t += {QStringLiteral("rating%1").arg(n), QString(n, QChar(0x2605)), key(Qt::ALT | Qt::Key(Qt::Key_0 + n))};
    t += {QStringLiteral("rating0"), QStringLiteral("Sin estrellas"), key(Qt::ALT | Qt::Key_0)};
    t += {QStringLiteral("flag"), QStringLiteral("Bandera"), key(Qt::Key_T)};
    t += {QStringLiteral("rotateLeft"), QStringLiteral("Girar a la izquierda"), key(Qt::Key_BracketLeft)};
    t += {QStringLiteral("rotateRight"), QStringLiteral("Girar a la derecha"), key(Qt::Key_BracketRight)};
    t += {QStringLiteral("exportXmp"), QStringLiteral("Exportar marcas de la carpeta actual a XMP")};
    t += {QStringLiteral("applyIptc"), QStringLiteral("Aplicar plantilla IPTC…")};
    // Ver
    t += {QStringLiteral("viewGrid"), QStringLiteral("Cuadrícula"), {}, {}, true};
    t += {QStringLiteral("viewSingle"), QStringLiteral("Imagen"), {}, {}, true};
    t += {QStringLiteral("toggleView"), QStringLiteral("Cambiar cuadrícula / imagen"), key(Qt::Key_Space)};
    t += {QStringLiteral("zoomIn"), QStringLiteral("Miniaturas más grandes"),
          {QKeySequence(Qt::CTRL | Qt::Key_Plus), QKeySequence(Qt::CTRL | Qt::Key_Equal)}};
    t += {QStringLiteral("zoomOut"), QStringLiteral("Miniaturas más pequeñas"), key(Qt::CTRL | Qt::Key_Minus)};
    t += {QStringLiteral("infoPanel"), QStringLiteral("Panel de información"), key(Qt::Key_I), {}, true};
    t += {QStringLiteral("zoom100"), QStringLiteral("Zoom 100 % / encajar"), key(Qt::Key_Z)};
    t += {QStringLiteral("performance"), QStringLiteral("Rendimiento"), key(Qt::Key_P), {}, true};
    t += {QStringLiteral("focusPoint"), QStringLiteral("Punto de enfoque"), key(Qt::Key_F), {}, true};
    t += {QStringLiteral("filterBarVisible"), QStringLiteral("Barra de filtros"), {}, {}, true};
    t += {QStringLiteral("damagedOnly"), QStringLiteral("Solo las dañadas"), {}, {}, true};
    t += {QStringLiteral("clearFilters"), QStringLiteral("Quitar filtros")};
    for (SortKey k : allSortKeys())
        t += {QStringLiteral("sort-") + sortKeyToString(k), sortKeyTitle(k), {}, {}, true};
    t += {QStringLiteral("sortAscending"), QStringLiteral("Ascendente"), {}, {}, true};
    t += {QStringLiteral("sortDescending"), QStringLiteral("Descendente"), {}, {}, true};
    // Herramientas
    t += {QStringLiteral("rename"), QStringLiteral("Renombrar…"), key(Qt::Key_F2), QStringLiteral("Renombrar")};
    t += {QStringLiteral("clientPick"), QStringLiteral("Selección del cliente…"), {}, QStringLiteral("Selección del cliente")};
    t += {QStringLiteral("send"), QStringLiteral("Enviar…"), {}, QStringLiteral("Enviar")};
    t += {QStringLiteral("uploadQueue"), QStringLiteral("Cola de envíos")};
    t += {QStringLiteral("iptcTemplates"), QStringLiteral("Plantillas IPTC…")};
    t += {QStringLiteral("servers"), QStringLiteral("Servidores…")};
    // Ayuda
    t += {QStringLiteral("shortcuts"), QStringLiteral("Atajos de teclado")};
    t += {QStringLiteral("about"), QStringLiteral("Acerca de Corvane")};
    // Keys without a menu entry.
    t += {QStringLiteral("enter"), QStringLiteral("Entrar"), {QKeySequence(Qt::Key_Return), QKeySequence(Qt::Key_Enter)}};
    t += {QStringLiteral("escape"), QStringLiteral("Volver"), key(Qt::Key_Escape)};
    return t;
}
} // namespace

const QList<WindowAction> &windowActions()
{
    static const QList<WindowAction> table = build();
    return table;
}
