// articlectl: prepares and services a cash register's article catalogue through the register's
// own article library.

#include <QCoreApplication>

#include "ArticleManagerVersion.h"
#include "Tool.h"

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("articlectl"));
    QCoreApplication::setApplicationVersion(QStringLiteral(ARTICLEMANAGER_VERSION));
    Tool tool;
    return tool.Run(QCoreApplication::arguments().mid(1));
}
