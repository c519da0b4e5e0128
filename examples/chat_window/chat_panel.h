#ifndef CHAT_PANEL_H
#define CHAT_PANEL_H

#include <QtCore/QElapsedTimer>
#include <QtCore/QThread>
#include <QtCore/QTimer>
#include <QtWidgets/QWidget>

#include "chat_worker.h"

class QComboBox;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QTableWidget;
class QTextBrowser;

/// A panel in which the user asks questions about a database: pickers for databases and models, the conversation, the
/// SQL of the last answer, and its result as a table. Turns and queries run on one worker thread, so the panel stays
/// responsive.
class ChatPanel : public QWidget {
    Q_OBJECT

public:
    /// A database: its name in the tool, and its SQLite file.
    struct Database {
        QString name;
        QString file;
    };

    ChatPanel(const ChatService& service, const QList<Database>& databases, QWidget* parent = nullptr);
    /// Cancels a turn that runs and waits for the worker to end.
    ~ChatPanel() override;

private:
    void buildWidgets(const QList<Database>& databases);
    void arrangeWidgets();
    void connectWorker();
    void ask();
    void endTurn(const QString& answer, const QString& error, bool isCancelled);
    void showTable(const ChatTable& table, const QString& error);
    void showRestored(const QList<ChatMessage>& messages, const QString& error);
    void save();
    void restore();
    /// Shows the conversation, and behind it what has arrived of the next answer.
    void showConversation();
    void setStatus(const QString& text);
    void updateButtons();

    ChatWorker* m_worker;  // used and destroyed on m_thread
    QThread m_thread;
    QList<ChatMessage> m_messages;
    QString m_partialAnswer;
    bool m_isTurnRunning = false;
    bool m_isDatabaseOpen = false;
    QElapsedTimer m_turnTime;
    QTimer m_progressTimer;
    QTimer m_redrawTimer;  // shows pieces that arrive together at once

    QComboBox* m_databases = nullptr;
    QComboBox* m_models = nullptr;
    QTextBrowser* m_conversation = nullptr;
    QLineEdit* m_question = nullptr;
    QPushButton* m_askButton = nullptr;
    QPushButton* m_cancelButton = nullptr;
    QPlainTextEdit* m_sql = nullptr;
    QPushButton* m_runButton = nullptr;
    QTableWidget* m_table = nullptr;
    QPushButton* m_saveButton = nullptr;
    QPushButton* m_restoreButton = nullptr;
    QLabel* m_status = nullptr;
};

#endif
