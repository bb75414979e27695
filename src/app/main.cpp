// quorvale: the desktop application.

#include "app/CQuorvaleApp.h"

#include <QApplication>
#include <QCommandLineParser>

int main(int argc, char** argv) {
    QApplication qt(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Quorvale, the depth-image painter"));
    parser.addHelpOption();
    parser.addPositionalArgument(QStringLiteral("file"),
                                 QStringLiteral("A Quorvale document (.zmp or .zmq) to open"));
    parser.process(qt);

    CQuorvaleApp app;
    CQuorvaleApp::Options options;
    if (!parser.positionalArguments().isEmpty()) {
        options.path = parser.positionalArguments().front();
    }
    if (!app.InitInstance(options)) {
        return 1;
    }
    const int result = qt.exec();
    app.ExitInstance();
    return result;
}
