#include "ftpcommandreader.h"

namespace {
// Telnet "interrupt process" and "data mark" (IAC IP, IAC DM): clients put them before an
// urgent ABOR. They carry no meaning here.
QByteArray dropTelnetPrefix(QByteArray line)
{
    qsizetype i = 0;
    while (i + 1 < line.size() && uchar(line[i]) == 0xFF && (uchar(line[i + 1]) == 0xF4 || uchar(line[i + 1]) == 0xF2))
        i += 2;
    return i ? line.mid(i) : line;
}

bool isBlank(char c) { return c == ' ' || c == '\t'; }
} // namespace

bool FTPCommandReader::append(const char *data, qsizetype size)
{
    // Keep the buffer from growing without end: drop what has been consumed.
    if (_pos > 0 && (_pos >= _data.size() || _pos > 16384)) {
        _data.remove(0, _pos);
        _scanned -= _pos;
        _lineStart -= _pos;
        _pos = 0;
    }
    _data.append(data, size);
    if (buffered() > maxBuffered)
        return false;
    // Every line, finished or not, is held to maxLine bytes.
    for (qsizetype i = _scanned; i < _data.size(); ++i) {
        if (_data[i] == '\n') {
            if (i - _lineStart > maxLine)
                return false;
            _lineStart = i + 1;
        }
    }
    _scanned = _data.size();
    return _data.size() - _lineStart <= maxLine;
}

std::optional<QByteArray> FTPCommandReader::nextLine()
{
    const qsizetype lf = _data.indexOf('\n', _pos);
    if (lf < 0)
        return std::nullopt;
    qsizetype end = lf;
    if (end > _pos && _data[end - 1] == '\r')
        --end;
    QByteArray line = _data.mid(_pos, end - _pos);
    _pos = lf + 1;
    return line;
}

QByteArray FTPCommandReader::peekVerb() const
{
    const qsizetype lf = _data.indexOf('\n', _pos);
    if (lf < 0)
        return {};
    return parse(_data.mid(_pos, lf - _pos)).verb;
}

FTPCommandReader::Command FTPCommandReader::parse(const QByteArray &lineIn)
{
    QByteArray line = dropTelnetPrefix(lineIn);
    if (line.endsWith('\r'))
        line.chop(1);
    qsizetype start = 0;
    while (start < line.size() && isBlank(line[start]))
        ++start;
    qsizetype blank = start;
    while (blank < line.size() && line[blank] != ' ')
        ++blank;
    Command c;
    const QByteArray verb = line.mid(start, blank - start);
    if (verb.isEmpty() || verb.size() > 8)
        return c;
    for (char ch : verb)
        if (!((ch >= 'A' && ch <= 'Z') || (ch >= 'a' && ch <= 'z')))
            return c;
    c.verb = verb.toUpper();
    c.argument = line.mid(blank).trimmed();
    return c;
}
