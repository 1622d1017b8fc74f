#pragma once
// What the FTP receiver tells its owner. Handed out on the receiver's thread.
#include <QString>

struct FTPEvent {
    enum class Kind { failed, client, file, warning, ready, refused };
    Kind kind = Kind::ready;
    // failed, warning: the text for the user; client: the camera's address; file: the absolute
    // path of the stored file; refused: an upload that was not kept, "NAME: reason" (the reason
    // as the reply gave it, lower-cased: "DSC_0002.JPG: imagen incompleta").
    QString text;

    static FTPEvent failed(const QString &text) { return {Kind::failed, text}; }
    static FTPEvent client(const QString &ip) { return {Kind::client, ip}; }
    static FTPEvent file(const QString &path) { return {Kind::file, path}; }
    static FTPEvent warning(const QString &text) { return {Kind::warning, text}; }
    static FTPEvent ready() { return {Kind::ready, {}}; }
    static FTPEvent refused(const QString &name, const QString &reply)
    {
        return {Kind::refused, name + QStringLiteral(": ") + reply.left(1).toLower() + reply.mid(1)};
    }
};
