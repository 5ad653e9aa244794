#include "ServerCommand.h"

#include <QCoreApplication>

int main(int argc, char* argv[])
{
    // The plain Unix event loop: the GLib one costs memory and time and brings
    // nothing a server needs.
    if (qEnvironmentVariableIsEmpty("QT_NO_GLIB"))
        qputenv("QT_NO_GLIB", "1");
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("tidewell-server"));
    QCoreApplication::setApplicationVersion(QStringLiteral(TIDEWELL_VERSION));
    QStringList arguments = QCoreApplication::arguments();
    arguments.removeFirst();
    return ServerCommand::run(arguments);
}
