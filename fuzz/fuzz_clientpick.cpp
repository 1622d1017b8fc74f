// A client's message is pasted from anywhere (mail, chat, a PDF), so it can hold any text at all;
// the command line reads it from a file or standard input as bytes. Tokens are checked for their
// shape, for repeats and, on short messages, against the rules read by QRegularExpression; the work
// stays within a fixed number of steps per character.
#include "clientpickrules.h"

#include "fileops/clientselection.h"

#include <QSet>
#include <QUuid>

#include <cstdint>

namespace {
void check(bool ok)
{
    if (!ok)
        __builtin_trap();
}

bool isTokenChar(QChar c)
{
    const char16_t u = c.unicode();
    return (u >= u'a' && u <= u'z') || (u >= u'0' && u <= u'9') || u == u'_' || u == u'-';
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    using namespace ClientSelection;
    const QString message = QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size));
    Work work;
    const QStringList tokens = extractTokens(message, &work);
    check(work.steps <= 70 * (qint64(message.size()) + 1));

    QSet<QString> seen;
    for (const QString &t : tokens) {
        check(!t.isEmpty() && !seen.contains(t));
        seen.insert(t);
        bool digit = false;
        for (QChar c : t) {
            check(isTokenChar(c));
            digit = digit || c.isDigit();
        }
        check(digit && t.front() != u'-' && t.front() != u'_' && t.back() != u'-' && t.back() != u'_');
    }
    if (message.size() <= 64)
        check(tokens == tokensByRegularExpressions(message));

    // Every token finds the shots of its number and nothing else.
    const QUuid a = QUuid::createUuid(), b = QUuid::createUuid();
    const PhotoIndex index({{a, QStringLiteral("/f/DSC_0412.NEF")}, {b, QStringLiteral("/f/_DSF0412.RAF")}});
    const QList<ClientMatch> lines = match(tokens, index);
    check(lines.size() == tokens.size());
    for (const ClientMatch &m : lines)
        check(m.photos.isEmpty() || m.photos.size() == 2 || (m.token == QLatin1String("dsc_0412") && m.photos == QList<QUuid>{a})
              || (m.token == QLatin1String("_dsf0412") && m.photos == QList<QUuid>{b}));
    check(chosenPhotos(lines).size() <= 2);
    return 0;
}
