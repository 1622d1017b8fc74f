#include "iptcbatch.h"

#include "util/atomicbatch.h"

#include <QFileInfo>
#include <QHash>
#include <QSet>

namespace IptcBatch {

Outcome apply(const IptcTemplate &t, const QStringList &files, const std::function<bool(int, int)> &progress)
{
    Outcome out;
    AtomicBatch batch;
    QHash<QString, IptcFile::Undo> waiting;   // written into the batch, by target
    qint64 bytes = 0;

    const auto commit = [&] {
        QSet<QString> failedTargets;
        for (const AtomicBatch::Failure &f : batch.commit()) {
            failedTargets.insert(f.target);
            out.messages.append(QStringLiteral("%1: %2; no se ha modificado").arg(QFileInfo(f.target).fileName(), f.result.error));
        }
        for (auto it = waiting.cbegin(); it != waiting.cend(); ++it) {
            if (failedTargets.contains(it.key())) {
                --out.written;
                ++out.failed;
            } else {
                out.undo.append(*it);
            }
        }
        waiting.clear();
        bytes = 0;
    };

    for (int i = 0; i < files.size(); ++i) {
        const QString &file = files[i];
        // Two files of one shot may share a sidecar: the second reads what the first wrote.
        if (!IptcFile::writesInside(file) && waiting.contains(IptcFile::sidecarFor(file)))
            commit();
        IptcFile::Result r = IptcFile::apply(t, file, &batch);
        switch (r.kind) {
        case IptcFile::Result::written:
            ++out.written;
            waiting.insert(r.file, *r.undo);
            if (r.undo->jpeg)
                bytes += QFileInfo(r.file).size();
            break;
        case IptcFile::Result::unchanged: ++out.unchanged; break;
        case IptcFile::Result::failed:
            ++out.failed;
            out.messages.append(r.message);
            break;
        }
        if (batch.size() >= kGroupFiles || bytes >= kGroupBytes)
            commit();
        if (progress && !progress(i + 1, int(files.size())))
            break;
    }
    commit();
    return out;
}

QStringList undo(const QList<IptcFile::Undo> &undo)
{
    QStringList errors;
    for (qsizetype i = undo.size() - 1; i >= 0; --i) {
        const QString e = IptcFile::undo(undo[i]);
        if (!e.isEmpty())
            errors.append(e);
    }
    return errors;
}

} // namespace IptcBatch
