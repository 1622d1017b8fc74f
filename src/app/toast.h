#pragma once
// A short message bottom centre over its parent. Plain messages leave after about three
// seconds; errors stay until clicked or dismissed with their ×. A new message replaces the one
// shown. GUI thread only.
#include <QFrame>

class QLabel;
class QTimer;
class QToolButton;

class Toast : public QFrame
{
    Q_OBJECT
public:
    static constexpr int kShowMs = 3000;

    explicit Toast(QWidget *parent);

    void showMessage(const QString &text, bool error);
    void dismiss();
    QString text() const;
    bool isError() const { return _error; }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;

private:
    void place();

    QLabel *_label;
    QToolButton *_close;
    QTimer *_timer;
    bool _error = false;
};
