#include "fileopoutput.h"

#include <cstdio>

namespace {
void err(const QString &line) { std::fprintf(stderr, "%s\n", line.toUtf8().constData()); }
} // namespace

namespace FileOpOutput {

void recover()
{
    const QString sentence = FileOpJournal::recoverAll().sentence();
    if (!sentence.isEmpty())
        err(sentence);
}

int print(const FileOpOutcome &o)
{
    if (!o.error.isEmpty()) {
        err(o.error);
        return 1;
    }
    for (const QString &m : o.messages)
        err(m);
    std::printf("%s\n", (o.title() + QStringLiteral(": ") + o.body()).toUtf8().constData());
    return o.ok() ? 0 : 1;
}

} // namespace FileOpOutput
