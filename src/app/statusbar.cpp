#include "statusbar.h"

#include "analysis/sharpnessanalyzer.h"
#include "browser/appstate.h"

#include <QLabel>
#include <QProgressBar>

StatusBar::StatusBar(AppState &state, SharpnessAnalyzer &analyzer, QWidget *parent)
    : QStatusBar(parent)
    , _state(state)
    , _count(new QLabel(this))
    , _selection(new QLabel(this))
    , _damaged(new QLabel(this))
    , _unsupported(new QLabel(this))
    , _progressText(new QLabel(this))
    , _progress(new QProgressBar(this))
    , _sharpText(new QLabel(this))
    , _sharpProgress(new QProgressBar(this))
{
    setSizeGripEnabled(false);
    _count->setObjectName(QStringLiteral("statusCount"));
    _selection->setObjectName(QStringLiteral("statusSelection"));
    addWidget(_count);
    addWidget(_selection);
    _damaged->setObjectName(QStringLiteral("statusDamaged"));
    _damaged->setToolTip(QStringLiteral("Mostrar solo las imágenes dañadas"));
    _damaged->setTextInteractionFlags(Qt::LinksAccessibleByMouse);
    connect(_damaged, &QLabel::linkActivated, this, &StatusBar::damagedClicked);
    addWidget(_damaged);
    _unsupported->setObjectName(QStringLiteral("statusUnsupported"));
    addWidget(_unsupported);

    _progressText->setObjectName(QStringLiteral("statusProgressText"));
    _progress->setObjectName(QStringLiteral("statusProgress"));
    _progress->setFixedWidth(160);
    _progress->setMaximumHeight(12);
    _progress->setTextVisible(false);
    addPermanentWidget(_progressText);
    addPermanentWidget(_progress);

    _sharpText->setObjectName(QStringLiteral("statusSharpnessText"));
    _sharpProgress->setObjectName(QStringLiteral("statusSharpness"));
    _sharpProgress->setFixedWidth(100);
    _sharpProgress->setMaximumHeight(8);
    _sharpProgress->setTextVisible(false);
    addPermanentWidget(_sharpText);
    addPermanentWidget(_sharpProgress);
    _sharpText->hide();
    _sharpProgress->hide();

    for (auto signal : {&AppState::folderChanged, &AppState::loaded, &AppState::photosChanged, &AppState::selectionChanged})
        connect(&state, signal, this, &StatusBar::updateCounts);
    connect(&state, &AppState::photosUpdated, this, &StatusBar::updateCounts);
    connect(&state, &AppState::progressChanged, this, &StatusBar::updateProgress);
    connect(&analyzer, &SharpnessAnalyzer::progressChanged, this, &StatusBar::updateSharpness);
    updateCounts();
    updateProgress();
}

QString StatusBar::countText() const
{
    if (_state.folder().isEmpty())
        return {};
    if (_state.isLoading())
        return QStringLiteral("Cargando…");
    const qsizetype total = _state.photos().size();
    return QStringLiteral("%1 de %2 %3").arg(_state.visible().size()).arg(total)
        .arg(total == 1 ? QStringLiteral("imagen") : QStringLiteral("imágenes"));
}

QString StatusBar::selectionText() const
{
    const qsizetype k = _state.selection().size();
    if (k == 0)
        return {};
    return k == 1 ? QStringLiteral("1 seleccionada") : QStringLiteral("%1 seleccionadas").arg(k);
}

QString StatusBar::damagedText() const
{
    const int n = _state.isLoading() ? 0 : _state.damagedCount();
    if (n == 0)
        return {};
    return n == 1 ? QStringLiteral("1 dañada") : QStringLiteral("%1 dañadas").arg(n);
}

QString StatusBar::unsupportedText() const
{
    const qsizetype n = _state.isLoading() ? 0 : _state.otherFiles().size();
    if (n == 0)
        return {};
    return n == 1 ? QStringLiteral("1 archivo que Corvane no muestra")
                  : QStringLiteral("%1 archivos que Corvane no muestra").arg(n);
}

void StatusBar::updateCounts()
{
    _count->setText(countText());
    const QString sel = selectionText();
    _selection->setText(sel);
    _selection->setVisible(!sel.isEmpty());

    const QString damaged = damagedText();
    _damaged->setText(QStringLiteral("<a href=\"dañadas\" style=\"color:#e0787c; text-decoration:none\">%1</a>")
                          .arg(damaged.toHtmlEscaped()));
    _damaged->setVisible(!damaged.isEmpty());

    const QString unsupported = unsupportedText();
    _unsupported->setText(unsupported);
    _unsupported->setVisible(!unsupported.isEmpty());
    if (!unsupported.isEmpty()) {
        // Their names, so a photographer sees at once what was left out (a .HIF, a .txt…).
        constexpr int kListed = 30;
        const QStringList &files = _state.otherFiles();
        QStringList names;
        for (qsizetype i = 0; i < files.size() && i < kListed; ++i)
            names.append(files[i].mid(files[i].lastIndexOf(QLatin1Char('/')) + 1));
        if (files.size() > kListed)
            names.append(QStringLiteral("… y %1 más").arg(files.size() - kListed));
        _unsupported->setToolTip(names.join(QLatin1Char('\n')));
    }
}

void StatusBar::updateProgress()
{
    const auto &p = _state.progress();
    _progressText->setVisible(p.has_value());
    _progress->setVisible(p.has_value());
    if (!p)
        return;
    _progressText->setText(p->total > 0 ? QStringLiteral("%1 · %2 de %3").arg(p->text).arg(p->done).arg(p->total)
                                        : (p->done > 0 ? QStringLiteral("%1 · %2").arg(p->text).arg(p->done) : p->text));
    _progress->setRange(0, qMax(0, p->total));   // 0…0: busy, length unknown
    _progress->setValue(p->total > 0 ? p->done : 0);
}

void StatusBar::updateSharpness(int done, int total)
{
    const bool busy = total > 0 && done < total;
    _sharpText->setVisible(busy);
    _sharpProgress->setVisible(busy);
    if (!busy)
        return;
    _sharpText->setText(QStringLiteral("Analizando nitidez · %1 de %2").arg(done).arg(total));
    _sharpProgress->setRange(0, total);
    _sharpProgress->setValue(done);
}
