// An operation's journal is read back after a crash, when it may be cut short or damaged: it
// must be refused or read whole, never half-read into moves, and in work proportional to it.
#include "fileops/fileopjournal.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    const auto journal = FileOpJournal::decode(bytes);
    if (!journal)
        return 0;
    qsizetype steps = 0;
    for (const FileOpShot &s : journal->shots) {
        steps += s.steps.size();
        for (const FileOpStep &st : s.steps) {
            const auto folder = [](const QString &p) { return p.left(p.lastIndexOf(u'/')); };
            // A rename never leaves its folder; a temporary is always beside its final name.
            if (journal->op == FileOpJournal::Op::rename && folder(st.from) != folder(st.to))
                __builtin_trap();
            if (!st.temp.isEmpty() && folder(st.temp) != folder(st.to))
                __builtin_trap();
            if (!st.from.startsWith(u'/'))
                __builtin_trap();
        }
    }
    // Each step is at least {"from":"/","temp":"/","to":"/"} in the text.
    if (steps * 30 > qsizetype(size))
        __builtin_trap();
    // What was read writes back to the same journal.
    const auto again = FileOpJournal::decode(journal->encode());
    if (!again || again->shots.size() != journal->shots.size())
        __builtin_trap();
    return 0;
}
