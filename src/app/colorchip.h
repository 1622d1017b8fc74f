#pragma once
// A round toggle for one colour label in the filter bar (0 is "Sin color": a hollow ring).
#include <QAbstractButton>

class ColorChip : public QAbstractButton
{
    Q_OBJECT
public:
    ColorChip(int colorClass, QWidget *parent = nullptr);
    int colorClass() const { return _color; }
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
    void enterEvent(QEnterEvent *event) override;
    void leaveEvent(QEvent *event) override;

private:
    int _color;
    bool _hover = false;
};
