#pragma once
#include <QStringList>

// corvane iptc show FILE... [--json] | corvane iptc apply (--template NAME | --template-file F.json) FILE...
int iptcCommand(const QStringList &args);
