#include "legacyxattr.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <sys/xattr.h>

namespace LegacyXattr {

std::optional<Marks> read(const QString &path)
{
    const QByteArray native = QFile::encodeName(path);
    for (const char *name : {kName, kOlderName}) {
        char buffer[4096];
        const ssize_t n = ::getxattr(native.constData(), name, buffer, sizeof buffer);
        if (n <= 0)
            continue;
        const QJsonDocument doc = QJsonDocument::fromJson(QByteArray(buffer, int(n)));
        if (!doc.isObject())
            continue;
        const Marks m = Marks::fromJson(doc.object());
        if (!m.isEmpty())
            return m;
    }
    return std::nullopt;
}

} // namespace LegacyXattr

LegacyXattrReader::LegacyXattrReader(QObject *parent)
    : QObject(parent)
    , context(new QObject)
{
    queue.setObjectName(QStringLiteral("com.tessaly.corvane.xattr"));
    context->moveToThread(&queue);
    connect(&queue, &QThread::finished, context, &QObject::deleteLater);
    queue.start();
}

LegacyXattrReader::~LegacyXattrReader()
{
    queue.quit();
    queue.wait();
}

void LegacyXattrReader::read(const QStringList &mainFiles, quint64 generation)
{
    QMetaObject::invokeMethod(context, [this, mainFiles, generation] {
        QHash<QString, Marks> out;
        for (const QString &f : mainFiles)
            if (const auto m = LegacyXattr::read(f))
                out.insert(f, *m);
        if (!out.isEmpty())
            QMetaObject::invokeMethod(this, [this, out, generation] { emit found(generation, out); },
                                      Qt::QueuedConnection);
    }, Qt::QueuedConnection);
}
