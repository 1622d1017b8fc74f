#pragma once
// A small parser for "--flag", "--option VALUE" and positional arguments.
#include <QHash>
#include <QSet>
#include <QString>
#include <QStringList>

class ArgParser
{
public:
    ArgParser(const QSet<QString> &flags, const QSet<QString> &options) : _flags(flags), _options(options) {}

    // False on an unknown option or a missing value; error() says which.
    bool parse(const QStringList &args)
    {
        for (qsizetype i = 0; i < args.size(); ++i) {
            const QString &a = args[i];
            if (a == QLatin1String("--")) {
                _positional += args.mid(i + 1);
                break;
            }
            if (a.startsWith(QLatin1String("--"))) {
                const QString name = a.mid(2);
                if (_flags.contains(name))
                    _set.insert(name);
                else if (_options.contains(name) && i + 1 < args.size())
                    _values.insert(name, args[++i]);
                else {
                    _error = QStringLiteral("Opción desconocida o sin valor: %1").arg(a);
                    return false;
                }
            } else {
                _positional.append(a);
            }
        }
        return true;
    }
    bool flag(const QString &name) const { return _set.contains(name); }
    bool has(const QString &name) const { return _values.contains(name); }
    QString value(const QString &name) const { return _values.value(name); }
    const QStringList &positional() const { return _positional; }
    const QString &error() const { return _error; }

private:
    QSet<QString> _flags, _options, _set;
    QHash<QString, QString> _values;
    QStringList _positional;
    QString _error;
};
