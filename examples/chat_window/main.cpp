// A window with the chat panel, for SQLite files.
//   kai_chat_window FILE...
// Reads the key from DEEPSEEK_API_KEY. KAI_CHAT_HOST and KAI_CHAT_CA_FILE name another server and its certificates.
#include <QtCore/QFileInfo>
#include <QtWidgets/QApplication>

#include "chat_panel.h"

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    ChatService service;
    service.host = qEnvironmentVariable("KAI_CHAT_HOST");
    service.key = qEnvironmentVariable("DEEPSEEK_API_KEY");
    service.caFile = qEnvironmentVariable("KAI_CHAT_CA_FILE");
    QList<ChatPanel::Database> databases;
    for (const QString& file : QApplication::arguments().mid(1)) {
        databases.append({QFileInfo(file).fileName(), file});
    }
    ChatPanel panel(service, databases);
    panel.setWindowTitle(QStringLiteral("Ask your database"));
    panel.resize(760, 720);
    panel.show();
    return QApplication::exec();
}
