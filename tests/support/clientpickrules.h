#pragma once
// The rules of a client's message read literally with QRegularExpression, to hold the
// hand-written scanners of ClientSelection to them (the tests and the fuzz target).
#include <QRegularExpression>
#include <QSet>
#include <QString>
#include <QStringList>

inline QStringList tokensByRegularExpressions(const QString &message)
{
    static const QRegularExpression range(
        QStringLiteral("(?<![A-Za-z0-9_])(\\d{1,6})\\s*[-\u2013]\\s*(\\d{1,6})(?![A-Za-z0-9_])"));
    static const QRegularExpression single(QStringLiteral("[A-Za-z_\\-]*\\d+[A-Za-z0-9_\\-]*"));
    QStringList out;
    QSet<QString> seen;
    const auto add = [&](const QString &t) {
        if (!seen.contains(t)) {
            seen.insert(t);
            out << t;
        }
    };
    QString rest;
    qsizetype copied = 0;
    for (auto it = range.globalMatch(message); it.hasNext();) {
        const QRegularExpressionMatch m = it.next();
        const int a = m.captured(1).toInt(), b = m.captured(2).toInt();
        if (a < b && b - a <= 300) {
            for (int n = a; n <= b; ++n)
                add(QString::number(n));
            rest += message.mid(copied, m.capturedStart() - copied) + QLatin1Char(' ');
            copied = m.capturedEnd();
        }
    }
    rest += message.mid(copied);
    for (auto it = single.globalMatch(rest); it.hasNext();) {
        QString t = it.next().captured();
        while (t.startsWith(QLatin1Char('-')) || t.startsWith(QLatin1Char('_')))
            t.remove(0, 1);
        while (t.endsWith(QLatin1Char('-')) || t.endsWith(QLatin1Char('_')))
            t.chop(1);
        if (!t.isEmpty())
            add(t.toLower());
    }
    return out;
}
