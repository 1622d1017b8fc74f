#pragma once
// Cuts the bytes of an FTP control connection into command lines, within fixed limits: a line
// may hold at most 4096 bytes and at most 65536 bytes may wait unread. Any peer on the network
// can write here, so nothing is trusted: bytes are kept as bytes and the caller decides what a
// name may hold. One per session, on the receiver's thread.
#include <QByteArray>
#include <optional>

class FTPCommandReader
{
public:
    static constexpr qsizetype maxLine = 4096;
    static constexpr qsizetype maxBuffered = 65536;

    struct Command {
        QByteArray verb;       // upper-cased; empty when the line cannot be read as a command
        QByteArray argument;   // white space trimmed
    };

    // Appends received bytes. False once a limit is broken: the session must reply 500 and close.
    bool append(const char *data, qsizetype size);
    bool append(const QByteArray &bytes) { return append(bytes.constData(), bytes.size()); }
    // The next complete line, without its LF and trailing CR; none while no LF has arrived.
    std::optional<QByteArray> nextLine();
    // The verb of the next complete line, without taking it.
    QByteArray peekVerb() const;
    qsizetype buffered() const { return _data.size() - _pos; }

    // Splits one line at its first blank. A verb holds ASCII letters only; anything else (an
    // empty line, control bytes, NUL) gives an empty verb.
    static Command parse(const QByteArray &line);

private:
    QByteArray _data;
    qsizetype _pos = 0;       // start of the first unread line
    qsizetype _scanned = 0;   // bytes from _pos already checked for line length
    qsizetype _lineStart = 0; // start of the line being checked
};
