#include "importwindow.h"

#include "importchoicespage.h"
#include "importlabels.h"
#include "importprogresspage.h"
#include "question.h"
#include "importsummarypage.h"

#include "ingest/ingestphase.h"
#include "ingest/ingestrunner.h"

#include <QCloseEvent>
#include <QFileInfo>
#include <QLabel>
#include <QStackedWidget>
#include <QTimer>
#include <QVBoxLayout>

namespace {

const QString kTitle = QStringLiteral("Importar imágenes");
const QString kSubtitle = QStringLiteral("Copia las imágenes de la tarjeta a tus discos, con carpetas y nombres a tu gusto");
constexpr int kCardPollMs = 3000;

} // namespace

ImportWindow::ImportWindow(QWidget *parent)
    : QWidget(parent, Qt::Window)
    , _runner(new IngestRunner(this))
{
    setObjectName(QStringLiteral("importWindow"));
    setWindowTitle(kTitle);
    resize(1120, 780);

    auto *v = new QVBoxLayout(this);
    v->setContentsMargins(20, 16, 20, 16);
    v->addWidget(ImportLabels::heading(kTitle, 1.6, this));
    v->addWidget(ImportLabels::dim(kSubtitle, this));

    // In the order of Page.
    _pages = new QStackedWidget(this);
    _choices = new ImportChoicesPage(_pages);
    _progress = new ImportProgressPage(*_runner, _pages);
    _summary = new ImportSummaryPage(_pages);
    _pages->addWidget(_choices);
    _pages->addWidget(_progress);
    _pages->addWidget(_summary);
    v->addWidget(_pages, 1);

    // Cards come and go while the window is open; listing the mounts is cheap.
    _cardPoll = new QTimer(this);
    _cardPoll->setInterval(kCardPollMs);
    connect(_cardPoll, &QTimer::timeout, this, [this] {
        if (isVisible() && page() == Page::setup)
            _choices->refreshCards();
    });

    connect(_choices, &ImportChoicesPage::startRequested, this, &ImportWindow::startImport);
    connect(_choices, &ImportChoicesPage::closeRequested, this, &ImportWindow::close);
    connect(_summary, &ImportSummaryPage::verifyNowRequested, this, &ImportWindow::verifyNow);
    connect(_summary, &ImportSummaryPage::openRequested, this, [this] {
        if (!_runner->resultFolder().isEmpty())
            emit openFolderRequested(_runner->resultFolder());
    });
    connect(_summary, &ImportSummaryPage::againRequested, this, &ImportWindow::backToSetup);
    connect(_summary, &ImportSummaryPage::closeRequested, this, &ImportWindow::close);
    connect(_runner, &IngestRunner::finished, this, &ImportWindow::onFinished);
}

ImportWindow::~ImportWindow() = default;

ImportWindow::Page ImportWindow::page() const
{
    return Page(_pages->currentIndex());
}

void ImportWindow::showPage(Page page)
{
    _choices->setCurrent(page == Page::setup);
    _pages->setCurrentIndex(int(page));
}

void ImportWindow::startImport()
{
    const std::optional<IngestRequest> request = _choices->request();
    if (!request || !_runner->start(*request))
        return;
    _verifyNowRun = false;
    _progress->begin(ingestPhaseText(IngestPhase::scanning), true);
    showPage(Page::progress);
}

void ImportWindow::verifyNow()
{
    if (!_runner->verifyNow())
        return;
    _verifyNowRun = true;
    _progress->begin(ingestPhaseText(IngestPhase::verifying), false);
    showPage(Page::progress);
}

void ImportWindow::onFinished()
{
    const IngestReport &report = _runner->report();
    _summary->showReport(report);
    showPage(Page::summary);
    if (!_verifyNowRun && _choices->openWhenDone() && !report.cancelled && !report.resultFolder.isEmpty()
        && QFileInfo(report.resultFolder).isDir())
        emit openFolderRequested(report.resultFolder);
}

void ImportWindow::backToSetup()
{
    showPage(Page::setup);
    // The record and the destinations changed: read the source again for a true preview.
    _choices->readAgain();
}

void ImportWindow::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    if (page() == Page::summary && !_runner->busy())
        backToSetup();
    _choices->refreshCards();
    _cardPoll->start();
}

void ImportWindow::closeEvent(QCloseEvent *event)
{
    if (_runner->busy()) {
        if (!askQuestion(this, kTitle, QStringLiteral("Hay una importación en marcha. ¿Quieres cancelarla?"),
                         QStringLiteral("Cancelar la importación"), QStringLiteral("Seguir importando"))) {
            event->ignore();
            return;
        }
        _runner->cancel();
    }
    _cardPoll->stop();
    _choices->saveSettings();
    QWidget::closeEvent(event);
}
