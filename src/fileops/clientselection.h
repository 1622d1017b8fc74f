#pragma once
// A client's free-text message of picks ("Me quedo con la 0412, 415 y de la 600 a la 605") read
// into tokens, and each token matched to the shots of a folder by name or by number. Pure
// functions and a value index: safe on any thread.
#include <QHash>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>
#include <QSet>
#include <QUuid>

namespace ClientSelection {

// Widest range read as a run of numbers ("600-605"); a wider or reversed one is not a range.
inline constexpr int kMaxRangeSpan = 300;

// What extractTokens did, counted in characters looked at and numbers produced by ranges; the
// fuzz target checks it stays proportional to the message.
struct Work {
    qint64 steps = 0;
};

// The numbers and names of `message`, lower-cased, in order, each once: first every number of the
// ranges ("600-605", "600 – 605"), then every other run of letters, digits, "_" and "-" that holds
// a digit, trimmed of "-" and "_" ("DSC_0533.NEF" gives "dsc_0533").
QStringList extractTokens(QStringView message, Work *work = nullptr);

// One line of the result: a token and the shots it designates.
struct ClientMatch {
    int id = 0;               // position in the list
    QString token;
    QList<QUuid> photos;      // empty, one or several
    bool include = true;      // takes part in the actions
};

// What a line tells the user: "No hay ninguna imagen con ese número", "varias con ese número", or
// nothing when the token found exactly one shot.
QString problemOf(const ClientMatch &m);

// The shots of a folder by lower-cased base name and by the number of that name.
class PhotoIndex
{
public:
    PhotoIndex() = default;
    // `shots`: each shot's identity and main file (path or name).
    explicit PhotoIndex(const QList<QPair<QUuid, QString>> &shots);

    // The shots whose base name is `token`; failing that, those whose number is the token's.
    QList<QUuid> designated(const QString &token) const;

private:
    QHash<QString, QList<QUuid>> _byName;
    QHash<int, QList<QUuid>> _byNumber;
};

// One line per token, every line included.
QList<ClientMatch> match(const QStringList &tokens, const PhotoIndex &index);

// The shots of the included lines, each once, in the order of the lines, without `excluded`.
QList<QUuid> chosenPhotos(const QList<ClientMatch> &matches, const QSet<QUuid> &excluded = {});

// The tokens that designate no shot, in order.
QStringList missingTokens(const QList<ClientMatch> &matches);

} // namespace ClientSelection
