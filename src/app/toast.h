#pragma once
// A short message bottom centre over its parent. Plain messages leave after about three
// seconds (five when they offer an action, such as "Deshacer"); errors stay until clicked or
// dismissed with their ×. A new message replaces the one shown. GUI thread only.
#include <QFrame>
#include <functional>

class QLabel;
class QTimer;
class QToolButton;

class Toast : public QFrame
{
    Q_OBJECT
public:
    static constexpr int kShowMs = 3000;

    explicit Toast(QWidget *parent);

    static constexpr int kActionShowMs = 5000;

    void showMessage(const QString &text, bool error);
    // A message with a button that runs `action` and closes the message; an error one stays.
    void showAction(const QString &text, const QString &actionText, std::function<void()> action, bool error = false);
    void dismiss();
    QString text() const;
    bool isError() const { return _error; }

    QToolButton *actionButton() const { return _action; }
    bool offersAction() const { return isVisible() && _onAction != nullptr; }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;

private:
    void place();

    QLabel *_label;
    QToolButton *_action;
    QToolButton *_close;
    std::function<void()> _onAction;
    QTimer *_timer;
    bool _error = false;
};
