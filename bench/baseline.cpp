// The yardstick for start-up time and memory: a bare Qt Widgets program with one
// tray icon and one 420 x 520 window, nothing else.

#include <QApplication>
#include <QIcon>
#include <QPixmap>
#include <QSystemTrayIcon>
#include <QWidget>

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    QPixmap pm(22, 22);
    pm.fill(Qt::darkCyan);
    QSystemTrayIcon tray{QIcon(pm)};
    tray.show();
    QWidget window;
    window.setWindowTitle(QStringLiteral("Baseline"));
    window.resize(420, 520);
    window.show();
    return app.exec();
}
