#include "fileopoutcome.h"

#include <QFileInfo>

namespace {

using Op = FileOpJournal::Op;

struct Words {
    const char *complete, *partial, *nothing;   // titles
    const char *doneOne, *doneMany;             // "Se ha copiado", "Se han copiado"
    const char *failOne, *failMany;             // what could not be done
};

Words wordsFor(Op op, bool undo)
{
    if (undo)
        return {"Operación deshecha", "Operación deshecha en parte", "No se ha deshecho nada",
                "Se ha devuelto", "Se han devuelto", "no se ha podido devolver", "no se han podido devolver"};
    switch (op) {
    case Op::copy:
        return {"Copia completada", "Copia con errores", "No se ha copiado nada",
                "Se ha copiado", "Se han copiado", "no se ha podido copiar", "no se han podido copiar"};
    case Op::move:
        return {"Traslado completado", "Traslado con errores", "No se ha movido nada",
                "Se ha movido", "Se han movido", "no se ha podido mover", "no se han podido mover"};
    case Op::trash:
        return {"Enviadas a la papelera", "Papelera con errores", "No se ha enviado nada a la papelera",
                "Se ha enviado a la papelera", "Se han enviado a la papelera", "no se ha podido enviar a la papelera",
                "no se han podido enviar a la papelera"};
    case Op::untrash:
        return {"Recuperadas de la papelera", "Recuperación con errores", "No se ha recuperado nada",
                "Se ha recuperado", "Se han recuperado", "no se ha podido recuperar", "no se han podido recuperar"};
    case Op::rename: break;
    }
    return {"Renombrado completado", "Renombrado con errores", "No se ha renombrado nada",
            "Se ha renombrado", "Se han renombrado", "no se ha podido renombrar", "no se han podido renombrar"};
}

} // namespace

QString shotCount(int n) { return n == 1 ? QStringLiteral("1 imagen") : QStringLiteral("%1 imágenes").arg(n); }

QString FileOpOutcome::title() const
{
    const Words w = wordsFor(op, undo);
    if (!error.isEmpty() || (done == 0 && !kept.isEmpty()))
        return QString::fromUtf8(w.nothing);
    return QString::fromUtf8(kept.isEmpty() ? w.complete : w.partial);
}

QString FileOpOutcome::body() const
{
    if (!error.isEmpty())
        return error;
    const Words w = wordsFor(op, undo);
    QString s;
    if (op == Op::rename && !undo) {
        // The rename's own wording, with what travelled with each shot.
        if (done > 0) {
            s = QStringLiteral("Se han renombrado %1 (%2 archivos, con sus parejas RAW/JPG y .xmp)").arg(shotCount(done)).arg(files);
            if (kept.isEmpty())
                return s + QStringLiteral(". No ha habido ningún error y las marcas se han conservado.");
            s += QStringLiteral(". ");
        }
        if (kept.size() == 1)
            s += QStringLiteral("1 imagen no se ha podido renombrar y conserva %1.").arg(kept.first());
        else if (kept.size() > 1)
            s += QStringLiteral("%1 imágenes no se han podido renombrar y conservan %2.").arg(kept.size()).arg(kept.join(QStringLiteral(", ")));
    } else {
        if (done > 0) {
            s = QStringLiteral("%1 %2 (%3 archivos)")
                    .arg(QString::fromUtf8(done == 1 ? w.doneOne : w.doneMany), shotCount(done))
                    .arg(files);
            if (!destination.isEmpty() && !undo)
                s += QStringLiteral(" a %1").arg(destination);
            s += QStringLiteral(". ");
        }
        if (!kept.isEmpty())
            s += QStringLiteral("%1 %2: %3.")
                     .arg(shotCount(int(kept.size())), QString::fromUtf8(kept.size() == 1 ? w.failOne : w.failMany),
                          kept.join(QStringLiteral(", ")));
        s = s.trimmed();
    }
    if (!savedAs.isEmpty())
        s += QStringLiteral(" No pudieron volver a su nombre y se han guardado como: %1.").arg(savedAs.join(QStringLiteral(", ")));
    return s;
}

QString FileOpOutcome::summary() const
{
    if (!error.isEmpty())
        return error;
    if (undo && kept.isEmpty() && savedAs.isEmpty()) {
        switch (op) {
        case Op::copy: return QStringLiteral("Copia deshecha: borradas las copias de %1 en %2.").arg(shotCount(done), QFileInfo(destination).fileName());
        case Op::move: return QStringLiteral("Traslado deshecho: %1 de vuelta en su carpeta.").arg(shotCount(done));
        case Op::trash:
        case Op::untrash:
            return done == 1 ? QStringLiteral("1 imagen recuperada de la papelera.") : QStringLiteral("%1 imágenes recuperadas de la papelera.").arg(done);
        case Op::rename: break;
        }
        return QStringLiteral("Renombrado deshecho: %1 con su nombre anterior.").arg(shotCount(done));
    }
    if (undo || !kept.isEmpty() || !savedAs.isEmpty())
        return title() + QStringLiteral(": ") + body();
    const QString where = destination.isEmpty() ? QString() : QStringLiteral(" a %1").arg(QFileInfo(destination).fileName());
    const auto agreed = [&](const char *one, const char *many) {
        return done == 1 ? QStringLiteral("1 imagen %1%2.").arg(QString::fromUtf8(one), where)
                         : QStringLiteral("%1 imágenes %2%3.").arg(done).arg(QString::fromUtf8(many), where);
    };
    switch (op) {
    case Op::copy: return agreed("copiada", "copiadas");
    case Op::move: return agreed("movida", "movidas");
    case Op::trash: return agreed("movida a la papelera", "movidas a la papelera");
    case Op::untrash: return agreed("recuperada de la papelera", "recuperadas de la papelera");
    case Op::rename: break;
    }
    return title();
}
