// The FTP command reader and the path folding behind it take bytes from anyone on the network.
// The input is cut into arrivals of varying size, as TCP would deliver it; every line is parsed
// and its argument resolved as a folder and as a file name.
#include "camera/ftpcommandreader.h"
#include "camera/ftppath.h"

#include <cstdint>

namespace {
void check(bool ok)
{
    if (!ok)
        __builtin_trap();
}

void checkParts(const FTPPath::Parts &parts)
{
    check(parts.size() <= 32);
    for (const QString &p : parts) {
        check(!p.isEmpty() && !p.startsWith(QLatin1Char('.')) && p.toUtf8().size() <= 200);
        for (QChar c : p)
            check(c != QLatin1Char('/') && c != QLatin1Char('\\') && c.unicode() >= 0x20 && c.unicode() != 0x7F);
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FTPCommandReader reader;
    FTPPath::Parts cwd;
    size_t pos = 0;
    // The first byte picks the arrival sizes, so the same bytes are also tried cut differently.
    const size_t step = size ? size_t(data[0] % 64) + 1 : 1;
    while (pos < size) {
        const size_t n = std::min(step + pos % 7, size - pos);
        if (!reader.append(reinterpret_cast<const char *>(data + pos), qsizetype(n)))
            return 0;   // the session would reply 500 and close
        pos += n;
        check(reader.buffered() <= FTPCommandReader::maxBuffered);
        while (const auto line = reader.nextLine()) {
            check(!line->contains('\n') && line->size() <= FTPCommandReader::maxLine);
            const FTPCommandReader::Command c = FTPCommandReader::parse(*line);
            check(c.verb.size() <= 8);
            for (char ch : c.verb)
                check(ch >= 'A' && ch <= 'Z');
            if (c.verb.isEmpty())
                check(c.argument.isEmpty());
            if (const auto folder = FTPPath::resolveFolder(cwd, c.argument)) {
                checkParts(*folder);
                if (c.verb == "CWD")
                    cwd = *folder;
            }
            if (const auto file = FTPPath::resolveFile(cwd, c.argument)) {
                checkParts(*file);
                check(!file->isEmpty());
            }
            check(FTPPath::display(cwd).startsWith(QLatin1Char('/')));
        }
    }
    return 0;
}
