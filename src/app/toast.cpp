#include "toast.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QStyle>
#include <QTimer>
#include <QToolButton>

Toast::Toast(QWidget *parent)
    : QFrame(parent)
    , _label(new QLabel(this))
    , _action(new QToolButton(this))
    , _close(new QToolButton(this))
    , _timer(new QTimer(this))
{
    setObjectName(QStringLiteral("toast"));
    setAttribute(Qt::WA_StyledBackground);
    setFocusPolicy(Qt::NoFocus);
    setStyleSheet(QStringLiteral(
        "#toast { background: #3a3a3a; border: 1px solid #505050; border-radius: 6px; color: #e6e6e6; }"
        "#toast[error=\"true\"] { background: #4a2326; border: 1px solid #8a3a3f; color: #f2dede; }"));
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(16, 9, 10, 9);
    layout->setSpacing(10);
    _label->setWordWrap(true);
    layout->addWidget(_label, 1);
    _action->setObjectName(QStringLiteral("toastAction"));
    _action->setFocusPolicy(Qt::NoFocus);
    _action->setStyleSheet(QStringLiteral("QToolButton { color: #8cc4ff; font-weight: 600; border: none; padding: 2px 6px; }"));
    _action->hide();
    layout->addWidget(_action);
    connect(_action, &QToolButton::clicked, this, [this] {
        const auto action = std::exchange(_onAction, nullptr);
        dismiss();
        if (action)
            action();
    });
    _close->setText(QStringLiteral("×"));
    _close->setToolTip(QStringLiteral("Cerrar"));
    _close->setAutoRaise(true);
    _close->setFocusPolicy(Qt::NoFocus);
    layout->addWidget(_close);
    connect(_close, &QToolButton::clicked, this, &Toast::dismiss);
    _timer->setSingleShot(true);
    connect(_timer, &QTimer::timeout, this, &Toast::dismiss);
    parent->installEventFilter(this);
    hide();
}

void Toast::showAction(const QString &text, const QString &actionText, std::function<void()> action, bool error)
{
    showMessage(text, error);
    _onAction = std::move(action);
    _action->setText(actionText);
    _action->show();
    if (!error)
        _timer->start(kActionShowMs);
    adjustSize();
    place();
}

void Toast::showMessage(const QString &text, bool error)
{
    _onAction = nullptr;
    _action->hide();
    _error = error;
    _label->setText(text);
    // Wrapped labels size themselves badly: a short message gets its own width, a long one
    // wraps at a readable measure.
    int widest = 0;
    for (const QString &line : text.split(QLatin1Char('\n')))
        widest = qMax(widest, _label->fontMetrics().horizontalAdvance(line));
    _label->setFixedWidth(qMin(widest + 4, 520));
    _close->setVisible(error);
    setProperty("error", error);
    style()->unpolish(this);   // the [error] selector is read at polish time
    style()->polish(this);
    if (error)
        _timer->stop();
    else
        _timer->start(kShowMs);
    adjustSize();
    place();
    show();
    raise();
}

void Toast::dismiss()
{
    _timer->stop();
    hide();
}

QString Toast::text() const { return _label->text(); }

void Toast::place()
{
    if (!parentWidget())
        return;
    const QSize s = sizeHint().boundedTo(parentWidget()->size() - QSize(24, 24));
    resize(s);
    move((parentWidget()->width() - s.width()) / 2, parentWidget()->height() - s.height() - 28);
}

bool Toast::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == parentWidget() && event->type() == QEvent::Resize && isVisible())
        place();
    return QFrame::eventFilter(watched, event);
}

void Toast::mousePressEvent(QMouseEvent *event)
{
    dismiss();
    event->accept();
}
