#include "iptcapplysheet.h"

#include "iptctemplateswindow.h"

#include "browser/appstate.h"
#include "browser/browsersession.h"
#include "marks/marksstore.h"
#include "metadata/iptclibrary.h"
#include "metadata/xmpstore.h"
#include "model/filekinds.h"
#include "util/settings.h"

#include <QCloseEvent>
#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>
#include <QtConcurrent>

namespace {
constexpr int kFailureLines = 8;   // a toast lists this many failed files, then counts the rest

QString imagesText(int n)
{
    return n == 1 ? QStringLiteral("1 imagen") : QStringLiteral("%1 imágenes").arg(n);
}
} // namespace

IptcApplySheet::IptcApplySheet(BrowserSession &session, QWidget *parent, const QString &library)
    : QDialog(parent)
    , _session(session)
    , _library(library.isEmpty() ? IptcLibrary::path() : library)
    , _pages(new QStackedWidget(this))
{
    setObjectName(QStringLiteral("aplicarIptc"));
    setWindowTitle(QStringLiteral("Aplicar plantilla IPTC"));
    resize(520, 380);

    for (const Photo *p : session.state().targets()) {
        _shots.append(p->id);
        for (const QString &f : p->files())
            if (!FileKinds::isSidecar(f))
                _files.append(f);
    }

    // ----- Choosing
    auto *choose = new QWidget(_pages);
    auto *layout = new QVBoxLayout(choose);
    layout->addWidget(new QLabel(QStringLiteral("Plantilla"), choose));
    auto *row = new QHBoxLayout;
    _template = new QComboBox(choose);
    _template->setObjectName(QStringLiteral("iptcApplyTemplate"));
    row->addWidget(_template, 1);
    _edit = new QPushButton(QStringLiteral("Editar plantillas…"), choose);
    _edit->setAutoDefault(false);
    row->addWidget(_edit);
    layout->addLayout(row);
    _summary = new QLabel(choose);
    _summary->setObjectName(QStringLiteral("iptcApplySummary"));
    _summary->setWordWrap(true);
    _summary->setAlignment(Qt::AlignTop | Qt::AlignLeft);
    _summary->setTextFormat(Qt::PlainText);
    layout->addWidget(_summary, 1);
    auto *note = new QLabel(QStringLiteral("JPG: dentro del archivo; RAW: en su .xmp. Se puede deshacer al terminar."), choose);
    note->setWordWrap(true);
    note->setForegroundRole(QPalette::PlaceholderText);
    layout->addWidget(note);
    auto *cancel = new QPushButton(QStringLiteral("Cancelar"), choose);
    cancel->setAutoDefault(false);
    _apply = new QPushButton(QStringLiteral("Aplicar a %1").arg(imagesText(int(_shots.size()))), choose);
    _apply->setObjectName(QStringLiteral("iptcApplyButton"));
    _apply->setDefault(true);
    auto *bottom = new QHBoxLayout;
    bottom->addStretch(1);
    bottom->addWidget(cancel);
    bottom->addWidget(_apply);
    layout->addLayout(bottom);
    _pages->addWidget(choose);

    // ----- Running
    auto *running = new QWidget(_pages);
    auto *runLayout = new QVBoxLayout(running);
    runLayout->addStretch(1);
    _runningLabel = new QLabel(running);
    _runningLabel->setWordWrap(true);
    runLayout->addWidget(_runningLabel);
    _progress = new QProgressBar(running);
    runLayout->addWidget(_progress);
    _stop = new QPushButton(QStringLiteral("Detener"), running);
    auto *stopRow = new QHBoxLayout;
    stopRow->addStretch(1);
    stopRow->addWidget(_stop);
    runLayout->addLayout(stopRow);
    runLayout->addStretch(1);
    _pages->addWidget(running);

    auto *outer = new QVBoxLayout(this);
    outer->addWidget(_pages);

    reloadTemplates();
    connect(_template, &QComboBox::currentIndexChanged, this, &IptcApplySheet::updateSummary);
    connect(_edit, &QPushButton::clicked, this, &IptcApplySheet::editTemplates);
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(_apply, &QPushButton::clicked, this, &IptcApplySheet::start);
    connect(_stop, &QPushButton::clicked, this, [this] {
        if (_cancel)
            _cancel->store(true);
        _stop->setEnabled(false);
        _runningLabel->setText(QStringLiteral("Deteniendo después del archivo en curso…"));
    });
    connect(&_watcher, &QFutureWatcher<IptcBatch::Outcome>::finished, this, &IptcApplySheet::finished);
}

IptcApplySheet::~IptcApplySheet()
{
    // The window may go while files are written: the rest is stopped, the file in hand finished.
    if (_cancel)
        _cancel->store(true);
    _watcher.waitForFinished();
}

void IptcApplySheet::reloadTemplates()
{
    const QString keep = _template->count() > 0 ? _template->currentText() : Settings::iptcLastTemplate.get();
    const QSignalBlocker block(_template);
    _template->clear();
    for (const IptcTemplate &t : IptcLibrary::load(_library))
        _template->addItem(t.name);
    if (const int i = _template->findText(keep); i >= 0)
        _template->setCurrentIndex(i);
    updateSummary();
}

void IptcApplySheet::editTemplates()
{
    // Over this sheet, which blocks the main window while it is open.
    auto *editor = new IptcTemplatesWindow(this, _library);
    editor->setAttribute(Qt::WA_DeleteOnClose);
    if (_template->count() > 0)
        editor->select(_template->currentText());
    connect(editor, &IptcTemplatesWindow::templatesChanged, this, &IptcApplySheet::reloadTemplates);
    editor->open();
}

void IptcApplySheet::updateSummary()
{
    const auto t = _template->count() > 0 ? IptcLibrary::find(_template->currentText(), _library) : std::nullopt;
    QString problem;
    if (_files.isEmpty())
        problem = QStringLiteral("No hay imágenes elegidas.");
    else if (_template->count() == 0)
        problem = QStringLiteral("Aún no hay plantillas: créalas con «Editar plantillas…».");
    else if (!t || t->isEmpty())
        problem = QStringLiteral("Esta plantilla no tiene ningún campo escrito.");
    _apply->setEnabled(problem.isEmpty());
    if (!problem.isEmpty()) {
        _summary->setText(problem);
        return;
    }
    QStringList lines;
    for (IptcField f : IptcFields::all()) {
        const QString v = t->values[f];
        if (v.isEmpty())
            continue;
        QString line = IptcFields::label(f) + QStringLiteral(": ") + QString(v).replace(QLatin1Char('\n'), QLatin1Char(' '));
        if (t->mode(f) == IptcTemplate::Mode::ifEmpty)
            line += QStringLiteral("  (solo si está vacío)");
        lines << line;
    }
    if (!t->values.keywords.isEmpty()) {
        QString line = IptcFields::keywordsLabel() + QStringLiteral(": ") + t->values.keywords.join(QStringLiteral(", "));
        if (t->keywordMode == IptcTemplate::KeywordMode::add)
            line += QStringLiteral("  (se añaden a las existentes)");
        else if (t->keywordMode == IptcTemplate::KeywordMode::ifEmpty)
            line += QStringLiteral("  (solo si está vacío)");
        lines << line;
    }
    _summary->setText(lines.join(QLatin1Char('\n')));
}

void IptcApplySheet::start()
{
    if (_watcher.isRunning())
        return;
    const auto t = IptcLibrary::find(_template->currentText(), _library);
    if (!t || t->isEmpty() || _files.isEmpty())
        return;
    Settings::iptcLastTemplate.set(t->name);
    // Marks waiting to be written go first: a sidecar is never written by two hands at once.
    _session.store().flush();
    _session.sidecars().flush();
    _running = t->name;
    _cancel = std::make_shared<std::atomic_bool>(false);
    _runningLabel->setText(QStringLiteral("Aplicando «%1» a %2…").arg(t->name, imagesText(int(_shots.size()))));
    _progress->setRange(0, int(_files.size()));
    _progress->setValue(0);
    _pages->setCurrentIndex(1);
    QPointer<QProgressBar> bar = _progress;
    _watcher.setFuture(QtConcurrent::run([tpl = *t, files = _files, cancel = _cancel, bar] {
        return IptcBatch::apply(tpl, files, [cancel, bar](int done, int total) {
            QMetaObject::invokeMethod(bar, [bar, done, total] {
                if (bar) {
                    bar->setRange(0, total);
                    bar->setValue(done);
                }
            }, Qt::QueuedConnection);
            return !cancel->load();
        });
    }));
}

void IptcApplySheet::finished()
{
    const IptcBatch::Outcome outcome = _watcher.result();
    emit applied(outcomeText(_running, outcome, int(_files.size())), outcome, _shots);
    accept();
}

QString IptcApplySheet::outcomeText(const QString &templateName, const IptcBatch::Outcome &o, int total)
{
    QString text = o.written == 1 ? QStringLiteral("Plantilla «%1» aplicada a 1 archivo.").arg(templateName)
                                  : QStringLiteral("Plantilla «%1» aplicada a %2 archivos.").arg(templateName).arg(o.written);
    if (o.unchanged > 0)
        text += o.unchanged == 1 ? QStringLiteral(" 1 ya la tenía.") : QStringLiteral(" %1 ya la tenían.").arg(o.unchanged);
    if (const int left = total - o.written - o.unchanged - o.failed; left > 0)
        text += left == 1 ? QStringLiteral(" Detenida: 1 archivo sin tocar.") : QStringLiteral(" Detenida: %1 archivos sin tocar.").arg(left);
    if (o.failed > 0) {
        text += o.failed == 1 ? QStringLiteral(" 1 no se pudo escribir:") : QStringLiteral(" %1 no se pudieron escribir:").arg(o.failed);
        for (int i = 0; i < o.messages.size() && i < kFailureLines; ++i)
            text += QLatin1Char('\n') + o.messages[i];
        if (o.messages.size() > kFailureLines)
            text += QStringLiteral("\n… y %1 más").arg(o.messages.size() - kFailureLines);
    }
    return text;
}

void IptcApplySheet::reject()
{
    if (_watcher.isRunning())
        return;   // files are being written: "Detener" stops them, then the sheet closes itself
    QDialog::reject();
}

void IptcApplySheet::closeEvent(QCloseEvent *event)
{
    if (_watcher.isRunning()) {
        event->ignore();
        return;
    }
    QDialog::closeEvent(event);
}
