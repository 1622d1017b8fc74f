#pragma once

#include <QString>

class QWidget;

// A yes/no question whose buttons say what they do, in Spanish: Qt's own "Yes"/"No" are not
// translated here, and a verb is clearer than a yes. "No" is the default, so a stray Enter keeps
// things as they are. The buttons keep QMessageBox::Yes / No as their roles.
bool askQuestion(QWidget *parent, const QString &title, const QString &text, const QString &yes, const QString &no);
