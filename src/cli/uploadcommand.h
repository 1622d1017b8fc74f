#pragma once
#include <QStringList>

// corvane upload (URL | --server NAME) FILE... [--user U] [--password P | --password-file F]
//   [--tls explicit|implicit] [--active] [--insecure] [--pin SHA256] [--tmp-name]
// With a URL the files go at once, one after another; with a saved server they go through the
// upload queue (journaled: `corvane queue --run` finishes what an interrupted run left).
int uploadCommand(const QStringList &args);
// corvane check (URL | --server NAME) [...the same connection options]: logs in and lists the folder.
int checkCommand(const QStringList &args);
// corvane queue [--json] [--run] [--clear]: the upload queue; --run sends what is pending.
int queueCommand(const QStringList &args);
