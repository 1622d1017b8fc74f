// A client's message of 1 MB read and matched against a folder of 20,000 shots (two bodies, so
// every number is shared): ClientSelection against the same rules read by QRegularExpression,
// which finds the tokens only. Also the hostile messages: a megabyte of letters, and one of the
// widest ranges.
//   clientpick_bench
#include "clientpickrules.h"

#include "fileops/clientselection.h"

#include <QElapsedTimer>
#include <QUuid>

#include <algorithm>
#include <cstdio>
#include <functional>

namespace {

constexpr int kRuns = 3;
constexpr int kShots = 20000;
constexpr qsizetype kMessage = 1 << 20;

double bestMs(const std::function<void()> &work)
{
    double best = 1e300;
    for (int i = 0; i < kRuns; ++i) {
        QElapsedTimer t;
        t.start();
        work();
        best = std::min(best, t.nsecsElapsed() / 1e6);
    }
    return best;
}

} // namespace

int main()
{
    using namespace ClientSelection;
    QList<QPair<QUuid, QString>> shots;
    for (int i = 0; i < kShots / 2; ++i) {
        shots.append({QUuid::createUuid(), QStringLiteral("/boda/DSC_%1.NEF").arg(i, 4, 10, QLatin1Char('0'))});
        shots.append({QUuid::createUuid(), QStringLiteral("/boda/_DSF%1.RAF").arg(i, 4, 10, QLatin1Char('0'))});
    }
    QString message;
    for (int n = 0; message.size() < kMessage; n += 7)
        message += QStringLiteral("Hola! Me quedo con la %1, DSC_%2.NEF y de la %3-%4; ")
                       .arg(n % 10000, 4, 10, QLatin1Char('0'))
                       .arg((n + 3) % 10000, 4, 10, QLatin1Char('0'))
                       .arg(n % 9000)
                       .arg(n % 9000 + 5);
    message.truncate(kMessage);

    qsizetype lines = 0;
    const double ours = bestMs([&] {
        const PhotoIndex index(shots);
        lines = match(extractTokens(message), index).size();
    });
    qsizetype regexTokens = 0;
    const double peer = bestMs([&] { regexTokens = tokensByRegularExpressions(message).size(); });
    std::printf("message: %lld characters, %d shots, %lld lines\n", qlonglong(message.size()), kShots, qlonglong(lines));
    std::printf("corvane tokens + index + match: %8.2f ms  (best of %d)\n", ours, kRuns);
    std::printf("QRegularExpression tokens only: %8.2f ms  (%lld tokens)\n", peer, qlonglong(regexTokens));
    std::printf("corvane/regex = %.2f (aim ≤ 1.00; corvane under 1000 ms)\n", ours / peer);

    const QString letters(kMessage, QLatin1Char('a'));
    // Every number of six digits, 301 at a time, over and over.
    QString ranges;
    for (int a = 100000; ranges.size() < kMessage; a = a + 301 > 999699 ? 100000 : a + 301)
        ranges += QStringLiteral("%1-%2 ").arg(a).arg(a + 300);
    std::printf("1 MB of letters:        %8.2f ms\n", bestMs([&] { extractTokens(letters); }));
    std::printf("1 MB of widest ranges:  %8.2f ms\n", bestMs([&] { match(extractTokens(ranges), PhotoIndex(shots)); }));
    return 0;
}
