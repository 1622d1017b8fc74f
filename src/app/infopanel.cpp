#include "infopanel.h"

#include "datasize.h"

#include "browser/appstate.h"
#include "metadata/iptcfile.h"
#include "model/filekinds.h"

#include <QLabel>
#include <QTimer>
#include <QtConcurrent>
#include <QLocale>
#include <QVBoxLayout>

namespace {

QString exposureText(const PhotoMeta &m)
{
    const QLocale es(QLocale::Spanish, QLocale::Spain);
    QStringList parts;
    if (m.exposureTime && *m.exposureTime > 0) {
        const double t = *m.exposureTime;
        if (t < 0.5)
            parts << QStringLiteral("1/%1 s").arg(qRound(1.0 / t));
        else
            parts << QStringLiteral("%1 s").arg(es.toString(t, 'g', 3));
    }
    if (m.aperture && *m.aperture > 0)
        parts << QStringLiteral("f/%1").arg(es.toString(*m.aperture, 'g', 3));
    if (m.iso && *m.iso > 0)
        parts << QStringLiteral("ISO %1").arg(*m.iso);
    if (m.focalLength && *m.focalLength > 0)
        parts << QStringLiteral("%1 mm").arg(es.toString(*m.focalLength, 'g', 4));
    return parts.join(QStringLiteral(" · "));
}

constexpr int kIptcDelayMs = 150;   // past a held arrow key, only the shot stopped at is read

// A shot's texts: the first file that has a field gives it; keywords of all files together.
std::optional<IptcValues> readShotIptc(const QStringList &files)
{
    std::optional<IptcValues> out;
    for (const QString &f : files) {
        if (FileKinds::isSidecar(f))
            continue;   // read with its shot's file
        const auto v = IptcFile::read(f);
        if (!v)
            continue;
        if (!out) {
            out = v;
            continue;
        }
        for (IptcField field : IptcFields::all())
            if ((*out)[field].isEmpty())
                (*out)[field] = (*v)[field];
        for (const QString &k : v->keywords)
            if (!out->keywords.contains(k))
                out->keywords.append(k);
    }
    return out;
}

QString verdictText(const Photo &p, SharpSensitivity s)
{
    switch (sharpVerdict(p, s)) {
    case SharpBlurry: return sharpReason(p, s);
    case SharpDoubtful: return QStringLiteral("Dudosa");
    case SharpSharp: return QStringLiteral("Nítida");
    default: return QStringLiteral("Sin medir");
    }
}

} // namespace

InfoPanel::InfoPanel(AppState &state, QWidget *parent)
    : QWidget(parent)
    , _state(state)
{
    setObjectName(QStringLiteral("infoPanel"));
    setMinimumWidth(220);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(12, 10, 12, 10);
    layout->setSpacing(8);
    _title = new QLabel(this);
    _title->setWordWrap(true);
    QFont tf = _title->font();
    tf.setBold(true);
    _title->setFont(tf);
    layout->addWidget(_title);
    // Title over value, row after row. (QFormLayout with hidden rows writes out of bounds in
    // its height-for-width pass in Qt 6.4, so the rows are plain labels in a box.)
    _form = new QVBoxLayout;
    _form->setSpacing(1);
    layout->addLayout(_form);
    layout->addStretch(1);
    for (const char *row : {"Cámara", "Objetivo", "Exposición", "Fecha", "Dimensiones", "Tamaño", "Archivos", "Ruta", "Nitidez"})
        addRow(QString::fromUtf8(row));
    for (IptcField f : IptcFields::all()) {
        addRow(IptcFields::label(f));
        if (f == IptcField::description)
            addRow(IptcFields::keywordsLabel());
    }

    _iptcDelay = new QTimer(this);
    _iptcDelay->setSingleShot(true);
    _iptcDelay->setInterval(kIptcDelayMs);
    connect(_iptcDelay, &QTimer::timeout, this, &InfoPanel::readIptc);
    connect(&_iptcWatcher, &QFutureWatcher<std::optional<IptcValues>>::finished, this, [this] {
        if (_iptcReading != (_state.current() ? _state.current()->id : QUuid()))
            return;   // the shot changed meanwhile; its own read is on its way
        _iptc = _iptcWatcher.result();
        _iptcShot = _iptcReading;
        refresh();
    });

    connect(&state, &AppState::currentChanged, this, &InfoPanel::refresh);
    connect(&state, &AppState::photosUpdated, this, [this](const QList<QUuid> &ids) {
        if (const Photo *p = _state.current(); p && ids.contains(p->id)) {
            _iptcShot = {};   // its texts may have been written: read them again
            refresh();
        }
    });
    connect(&state, &AppState::photosChanged, this, &InfoPanel::refresh);
}

QLabel *InfoPanel::addRow(const QString &title)
{
    auto *label = new QLabel(this);
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto *name = new QLabel(title, this);
    name->setForegroundRole(QPalette::PlaceholderText);
    name->setContentsMargins(0, 6, 0, 0);   // a margin, not a spacer: hidden rows leave no gap
    _form->addWidget(name);
    _form->addWidget(label);
    _rows.append({title, label, name});
    return label;
}

QString InfoPanel::value(const QString &row) const
{
    for (const Row &r : _rows)
        if (r.title == row)
            return r.value->isHidden() ? QString() : r.value->text();
    return {};
}

void InfoPanel::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    refresh();
}

bool InfoPanel::iptcCurrent() const
{
    const Photo *p = _state.current();
    return p && _iptcShot == p->id && !_iptcDelay->isActive() && !_iptcWatcher.isRunning();
}

void InfoPanel::readIptc()
{
    const Photo *p = _state.current();
    if (!p || !isVisible())
        return;
    if (_iptcWatcher.isRunning()) {
        _iptcDelay->start();   // one read at a time; the newest shot is read next
        return;
    }
    _iptcReading = p->id;
    _iptcWatcher.setFuture(QtConcurrent::run([files = p->files()] { return readShotIptc(files); }));
}

void InfoPanel::refresh()
{
    if (!isVisible())
        return;   // filled when shown: no work per arrow key while the panel is closed
    const Photo *p = _state.current();
    if (p && _iptcShot != p->id && !_iptcDelay->isActive() && !(_iptcWatcher.isRunning() && _iptcReading == p->id))
        _iptcDelay->start();
    _title->setText(p ? p->name() : QStringLiteral("Ninguna imagen"));
    const QLocale es(QLocale::Spanish, QLocale::Spain);
    QHash<QString, QString> values;
    if (p) {
        if (const auto &m = p->meta()) {
            values[QStringLiteral("Cámara")] = m->cameraName();
            values[QStringLiteral("Objetivo")] = m->lens;
            values[QStringLiteral("Exposición")] = exposureText(*m);
            if (m->width > 0 && m->height > 0)
                values[QStringLiteral("Dimensiones")] = QStringLiteral("%1 × %2 px").arg(m->uprightWidth()).arg(m->uprightHeight());
        }
        if (const auto d = p->captureDate())
            values[QStringLiteral("Fecha")] = es.toString(*d, QStringLiteral("d MMM yyyy, HH:mm:ss"));
        else if (p->fileModified)
            values[QStringLiteral("Fecha")] = es.toString(p->fileModified->toLocalTime(), QStringLiteral("d MMM yyyy, HH:mm:ss"));
        values[QStringLiteral("Tamaño")] = dataSizeText(p->fileSize);
        QStringList names;
        for (const QString &f : p->files())
            names << f.mid(f.lastIndexOf(QLatin1Char('/')) + 1);
        values[QStringLiteral("Archivos")] = names.join(QStringLiteral(", "));
        values[QStringLiteral("Ruta")] = p->dirPath;
        values[QStringLiteral("Nitidez")] = verdictText(*p, _state.sensitivity());
        if (_iptc && _iptcShot == p->id) {
            for (IptcField f : IptcFields::all())
                values[IptcFields::label(f)] = (*_iptc)[f];
            values[IptcFields::keywordsLabel()] = _iptc->keywords.join(QStringLiteral(", "));
        }
    }
    for (const Row &r : std::as_const(_rows)) {
        const QString v = values.value(r.title);
        r.value->setText(v);
        r.value->setVisible(!v.isEmpty());
        r.name->setVisible(!v.isEmpty());
    }
}
