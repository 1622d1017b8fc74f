#pragma once
// Marks kept by older releases in per-file extended attributes ("user." namespace): read, never
// written. Reading runs on its own thread ("com.tessaly.corvane.xattr").
#include "marks.h"

#include <QHash>
#include <QObject>
#include <QStringList>
#include <QThread>
#include <optional>

namespace LegacyXattr {
inline constexpr const char *kName = "user.com.tessaly.corvane.marks";
inline constexpr const char *kOlderName = "user.com.tessaly.ostrel.marks";

// The marks held in a file's attributes (the newer name first), or absent.
std::optional<Marks> read(const QString &path);
} // namespace LegacyXattr

class LegacyXattrReader : public QObject
{
    Q_OBJECT
public:
    explicit LegacyXattrReader(QObject *parent = nullptr);
    ~LegacyXattrReader() override;
    // Reads the attributes of each main file; results arrive through found() on this object's thread.
    void read(const QStringList &mainFiles, quint64 generation);

signals:
    void found(quint64 generation, const QHash<QString, Marks> &marksByFile);

private:
    QThread queue;
    QObject *context;
};
