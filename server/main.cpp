#include "ServerCommand.h"

#include <QCoreApplication>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("tidewell-server"));
    QCoreApplication::setApplicationVersion(QStringLiteral(TIDEWELL_VERSION));
    QStringList arguments = QCoreApplication::arguments();
    arguments.removeFirst();
    return ServerCommand::run(arguments);
}
