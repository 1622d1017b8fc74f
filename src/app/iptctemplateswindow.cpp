#include "iptctemplateswindow.h"

#include "question.h"

#include "metadata/iptclibrary.h"

#include <QCloseEvent>
#include <QComboBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QTimer>
#include <QVBoxLayout>

namespace {
constexpr int kSaveDelayMs = 400;

QString fileOf(const QString &library) { return library.isEmpty() ? IptcLibrary::path() : library; }

// Keywords are typed as one line, separated by commas, as agencies' own tools show them.
QStringList splitKeywords(const QString &text)
{
    QStringList out;
    for (const QString &part : text.split(QLatin1Char(',')))
        if (const QString k = part.trimmed(); !k.isEmpty() && !out.contains(k))
            out.append(k);
    return out;
}

QString textOf(const QWidget *w)
{
    if (const auto *line = qobject_cast<const QLineEdit *>(w))
        return line->text().trimmed();
    return static_cast<const QPlainTextEdit *>(w)->toPlainText().trimmed();
}

void setTextOf(QWidget *w, const QString &text)
{
    if (auto *line = qobject_cast<QLineEdit *>(w))
        line->setText(text);
    else
        static_cast<QPlainTextEdit *>(w)->setPlainText(text);
}
} // namespace

IptcTemplatesWindow::IptcTemplatesWindow(QWidget *parent, const QString &library)
    : QDialog(parent)
    , _library(fileOf(library))
    , _saveDelay(new QTimer(this))
{
    setObjectName(QStringLiteral("plantillasIptc"));
    setWindowTitle(QStringLiteral("Plantillas IPTC"));
    resize(860, 680);
    _saveDelay->setSingleShot(true);
    _saveDelay->setInterval(kSaveDelayMs);
    connect(_saveDelay, &QTimer::timeout, this, &IptcTemplatesWindow::saveNow);

    // Left: the templates.
    auto *left = new QVBoxLayout;
    _list = new QListWidget(this);
    _list->setObjectName(QStringLiteral("iptcTemplateList"));
    _list->setMinimumWidth(200);
    left->addWidget(_list, 1);
    auto *buttons = new QHBoxLayout;
    _add = new QPushButton(QStringLiteral("Nueva"), this);
    _duplicate = new QPushButton(QStringLiteral("Duplicar"), this);
    _remove = new QPushButton(QStringLiteral("Eliminar"), this);
    for (QPushButton *b : {_add, _duplicate, _remove}) {
        b->setAutoDefault(false);
        buttons->addWidget(b);
    }
    left->addLayout(buttons);

    // Right: the fields of the chosen template.
    _form = new QWidget(this);
    auto *grid = new QGridLayout(_form);
    grid->setColumnStretch(1, 1);
    grid->setVerticalSpacing(6);
    int row = 0;
    _name = new QLineEdit(_form);
    _name->setObjectName(QStringLiteral("iptcTemplateName"));
    grid->addWidget(new QLabel(QStringLiteral("Nombre"), _form), row, 0);
    grid->addWidget(_name, row++, 1, 1, 2);
    auto *hint = new QLabel(QStringLiteral("Los campos vacíos no se tocan en las imágenes."), _form);
    hint->setForegroundRole(QPalette::PlaceholderText);
    grid->addWidget(hint, row++, 1, 1, 2);

    const auto modeCombo = [this] {
        auto *c = new QComboBox(_form);
        c->addItem(QStringLiteral("reemplazar"), int(IptcTemplate::Mode::replace));
        c->addItem(QStringLiteral("solo si está vacío"), int(IptcTemplate::Mode::ifEmpty));
        connect(c, &QComboBox::currentIndexChanged, this, &IptcTemplatesWindow::edit);
        return c;
    };
    const auto addField = [&](IptcField f) {
        QWidget *editor;
        if (IptcFields::multiline(f)) {
            auto *text = new QPlainTextEdit(_form);
            text->setTabChangesFocus(true);
            text->setFixedHeight(text->fontMetrics().lineSpacing() * 3 + 12);
            connect(text, &QPlainTextEdit::textChanged, this, &IptcTemplatesWindow::edit);
            editor = text;
        } else {
            auto *line = new QLineEdit(_form);
            connect(line, &QLineEdit::textChanged, this, &IptcTemplatesWindow::edit);
            editor = line;
        }
        editor->setObjectName(QStringLiteral("iptc-") + QLatin1String(IptcFields::jsonName(f)));
        auto *label = new QLabel(IptcFields::label(f), _form);
        label->setBuddy(editor);
        grid->addWidget(label, row, 0, IptcFields::multiline(f) ? Qt::AlignTop : Qt::Alignment());
        grid->addWidget(editor, row, 1);
        _edits[size_t(f)] = editor;
        _modes[size_t(f)] = modeCombo();
        grid->addWidget(_modes[size_t(f)], row++, 2, Qt::AlignTop);
    };
    // In the order a caption is written: who, what, where, then the terms and the contact.
    for (IptcField f : IptcFields::all()) {
        addField(f);
        if (f == IptcField::description) {
            _keywords = new QLineEdit(_form);
            _keywords->setObjectName(QStringLiteral("iptc-keywords"));
            _keywords->setPlaceholderText(QStringLiteral("separadas por comas"));
            connect(_keywords, &QLineEdit::textChanged, this, &IptcTemplatesWindow::edit);
            _keywordMode = new QComboBox(_form);
            _keywordMode->addItem(QStringLiteral("añadir a las existentes"), int(IptcTemplate::KeywordMode::add));
            _keywordMode->addItem(QStringLiteral("reemplazar"), int(IptcTemplate::KeywordMode::replace));
            _keywordMode->addItem(QStringLiteral("solo si está vacío"), int(IptcTemplate::KeywordMode::ifEmpty));
            connect(_keywordMode, &QComboBox::currentIndexChanged, this, &IptcTemplatesWindow::edit);
            grid->addWidget(new QLabel(IptcFields::keywordsLabel(), _form), row, 0);
            grid->addWidget(_keywords, row, 1);
            grid->addWidget(_keywordMode, row++, 2);
        }
    }
    grid->setRowStretch(row, 1);
    auto *scroll = new QScrollArea(this);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidget(_form);

    _message = new QLabel(this);
    _message->setObjectName(QStringLiteral("iptcTemplateMessage"));
    _message->setWordWrap(true);
    auto *close = new QPushButton(QStringLiteral("Cerrar"), this);
    close->setAutoDefault(false);
    auto *bottom = new QHBoxLayout;
    bottom->addWidget(_message, 1);
    bottom->addWidget(close);

    auto *columns = new QHBoxLayout;
    columns->addLayout(left);
    columns->addWidget(scroll, 1);
    auto *outer = new QVBoxLayout(this);
    outer->addLayout(columns, 1);
    outer->addLayout(bottom);

    connect(_name, &QLineEdit::textChanged, this, &IptcTemplatesWindow::edit);
    connect(_list, &QListWidget::currentTextChanged, this, [this](const QString &name) {
        if (_filling || name == _current)
            return;
        // What was typed is kept before another template is shown; a refused name stays.
        if (!saveNow()) {
            reloadList(_current);
            return;
        }
        select(name);
    });
    connect(_add, &QPushButton::clicked, this, &IptcTemplatesWindow::addNew);
    connect(_duplicate, &QPushButton::clicked, this, &IptcTemplatesWindow::duplicate);
    connect(_remove, &QPushButton::clicked, this, &IptcTemplatesWindow::removeCurrent);
    connect(close, &QPushButton::clicked, this, &QDialog::close);

    const QList<IptcTemplate> all = IptcLibrary::load(_library);
    reloadList(all.isEmpty() ? QString() : all.first().name);
    if (!all.isEmpty())
        display(all.first());
    else
        display(IptcTemplate{});
}

void IptcTemplatesWindow::reloadList(const QString &select)
{
    _filling = true;
    _list->clear();
    for (const IptcTemplate &t : IptcLibrary::load(_library)) {
        _list->addItem(t.name);
        if (t.name.compare(select, Qt::CaseInsensitive) == 0)
            _list->setCurrentRow(_list->count() - 1);
    }
    _filling = false;
    const bool any = _list->count() > 0;
    _form->setEnabled(any);
    _duplicate->setEnabled(any);
    _remove->setEnabled(any);
    if (!any)
        setMessage(QStringLiteral("Aún no hay plantillas: pulsa «Nueva» para crear una."), false);
}

void IptcTemplatesWindow::display(const IptcTemplate &t)
{
    _filling = true;
    _current = t.name;
    _name->setText(t.name);
    for (IptcField f : IptcFields::all()) {
        setTextOf(_edits[size_t(f)], t.values[f]);
        _modes[size_t(f)]->setCurrentIndex(_modes[size_t(f)]->findData(int(t.mode(f))));
    }
    _keywords->setText(t.values.keywords.join(QStringLiteral(", ")));
    _keywordMode->setCurrentIndex(_keywordMode->findData(int(t.keywordMode)));
    _filling = false;
    _dirty = false;
}

void IptcTemplatesWindow::select(const QString &name)
{
    if (_dirty && !saveNow())
        return;
    if (const auto t = IptcLibrary::find(name, _library)) {
        reloadList(t->name);
        display(*t);
        setMessage({}, false);
    }
}

IptcTemplate IptcTemplatesWindow::edited() const
{
    IptcTemplate t;
    t.name = _name->text().trimmed();
    for (IptcField f : IptcFields::all()) {
        t.values[f] = textOf(_edits[size_t(f)]);
        t.setMode(f, IptcTemplate::Mode(_modes[size_t(f)]->currentData().toInt()));
    }
    t.values.keywords = splitKeywords(_keywords->text());
    t.keywordMode = IptcTemplate::KeywordMode(_keywordMode->currentData().toInt());
    return t;
}

void IptcTemplatesWindow::edit()
{
    if (_filling || _current.isEmpty())
        return;
    _dirty = true;
    _saveDelay->start();
}

bool IptcTemplatesWindow::saveNow()
{
    _saveDelay->stop();
    if (!_dirty || _current.isEmpty())
        return true;
    const IptcTemplate t = edited();
    if (const QString error = IptcLibrary::save(t, _current, _library); !error.isEmpty()) {
        setMessage(error, true);
        return false;
    }
    _dirty = false;
    const bool renamed = t.name != _current;
    _current = t.name;
    if (renamed)
        reloadList(_current);
    setMessage(QStringLiteral("Guardada."), false);
    emit templatesChanged();
    return true;
}

void IptcTemplatesWindow::addNew()
{
    if (!saveNow())
        return;
    QString name = QStringLiteral("Nueva plantilla");
    for (int n = 2; IptcLibrary::find(name, _library); ++n)
        name = QStringLiteral("Nueva plantilla %1").arg(n);
    IptcTemplate t;
    t.name = name;
    if (const QString error = IptcLibrary::save(t, {}, _library); !error.isEmpty()) {
        setMessage(error, true);
        return;
    }
    emit templatesChanged();
    select(name);
    _name->setFocus();
    _name->selectAll();
}

void IptcTemplatesWindow::duplicate()
{
    if (_current.isEmpty() || !saveNow())
        return;
    const auto original = IptcLibrary::find(_current, _library);
    if (!original)
        return;
    IptcTemplate copy = *original;
    copy.name = IptcLibrary::copyName(original->name, _library);
    if (const QString error = IptcLibrary::save(copy, {}, _library); !error.isEmpty()) {
        setMessage(error, true);
        return;
    }
    emit templatesChanged();
    select(copy.name);
}

void IptcTemplatesWindow::removeCurrent()
{
    if (_current.isEmpty())
        return;
    if (!askQuestion(this, QStringLiteral("Eliminar plantilla"),
                     QStringLiteral("¿Eliminar la plantilla «%1»? Las imágenes que ya la llevan no cambian.").arg(_current),
                     QStringLiteral("Eliminar"), QStringLiteral("Cancelar")))
        return;
    _saveDelay->stop();
    _dirty = false;
    if (const QString error = IptcLibrary::remove(_current, _library); !error.isEmpty()) {
        setMessage(error, true);
        return;
    }
    emit templatesChanged();
    const QList<IptcTemplate> rest = IptcLibrary::load(_library);
    reloadList(rest.isEmpty() ? QString() : rest.first().name);
    display(rest.isEmpty() ? IptcTemplate{} : rest.first());
    if (!rest.isEmpty())
        setMessage({}, false);
}

void IptcTemplatesWindow::setMessage(const QString &text, bool error)
{
    _message->setText(text);
    _message->setStyleSheet(error ? QStringLiteral("color: #e07a6a;") : QString());
}

void IptcTemplatesWindow::closeEvent(QCloseEvent *event)
{
    // A refused name is not thrown away silently: the window stays with its sentence.
    if (!saveNow()) {
        event->ignore();
        return;
    }
    QDialog::closeEvent(event);
}

void IptcTemplatesWindow::reject()
{
    if (saveNow())
        QDialog::reject();
}
