#include "question.h"

#include <QAbstractButton>
#include <QMessageBox>

bool askQuestion(QWidget *parent, const QString &title, const QString &text, const QString &yes, const QString &no)
{
    QMessageBox box(QMessageBox::Question, title, text, QMessageBox::Yes | QMessageBox::No, parent);
    box.button(QMessageBox::Yes)->setText(yes);
    box.button(QMessageBox::No)->setText(no);
    box.setDefaultButton(QMessageBox::No);
    return box.exec() == QMessageBox::Yes;
}
