#pragma once
// What the FTP receiver tells its owner. Handed out on the receiver's thread.
#include <QString>

struct FTPEvent {
    enum class Kind { failed, client, file, warning, ready };
    Kind kind = Kind::ready;
    // failed, warning: the text for the user; client: the camera's address; file: the absolute
    // path of the stored file.
    QString text;

    static FTPEvent failed(const QString &text) { return {Kind::failed, text}; }
    static FTPEvent client(const QString &ip) { return {Kind::client, ip}; }
    static FTPEvent file(const QString &path) { return {Kind::file, path}; }
    static FTPEvent warning(const QString &text) { return {Kind::warning, text}; }
    static FTPEvent ready() { return {Kind::ready, {}}; }
};
