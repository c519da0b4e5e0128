#include "chat_panel.h"

#include <QtCore/QRegularExpression>
#include <QtGui/QFontDatabase>
#include <QtWidgets/QComboBox>
#include <QtWidgets/QFileDialog>
#include <QtWidgets/QHBoxLayout>
#include <QtWidgets/QHeaderView>
#include <QtWidgets/QLabel>
#include <QtWidgets/QLineEdit>
#include <QtWidgets/QPlainTextEdit>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QScrollBar>
#include <QtWidgets/QTableWidget>
#include <QtWidgets/QTextBrowser>
#include <QtWidgets/QVBoxLayout>

namespace {

const QRegularExpression& obtainSQLBlock() {
    static const QRegularExpression block(
        QStringLiteral("```sql\\s*\\n(.*?)(```|$)"),
        QRegularExpression::CaseInsensitiveOption | QRegularExpression::DotMatchesEverythingOption);
    return block;
}

QString extractSQL(const QString& answer) {
    return obtainSQLBlock().match(answer).captured(1).trimmed();
}

/// An answer as HTML: its SQL in boxes, everything else as plain text.
QString formatAnswer(const QString& answer) {
    QString html;
    qsizetype from = 0;
    QRegularExpressionMatchIterator blocks = obtainSQLBlock().globalMatch(answer);
    const auto addText = [&](qsizetype to) {
        html += answer.mid(from, to - from).trimmed().toHtmlEscaped().replace(QLatin1Char('\n'), QLatin1String("<br>"));
    };
    while (blocks.hasNext()) {
        const QRegularExpressionMatch block = blocks.next();
        addText(block.capturedStart());
        html += QStringLiteral(
                    "<table width=\"100%\" cellpadding=\"6\"><tr><td bgcolor=\"#eef2f7\"><pre>%1</pre></td>"
                    "</tr></table>")
                    .arg(block.captured(1).trimmed().toHtmlEscaped());
        from = block.capturedEnd();
    }
    addText(answer.size());
    return html;
}

template <class Widget>
Widget* named(Widget* widget, const char* name) {
    widget->setObjectName(QString::fromLatin1(name));
    return widget;
}

}  // namespace

ChatPanel::ChatPanel(const ChatService& service, const QList<Database>& databases, QWidget* parent)
    : QWidget(parent), m_worker(new ChatWorker(service)) {
    buildWidgets(databases);
    arrangeWidgets();
    connectWorker();
    m_worker->moveToThread(&m_thread);
    connect(&m_thread, &QThread::started, m_worker, &ChatWorker::begin);
    connect(&m_thread, &QThread::finished, m_worker, &QObject::deleteLater);
    m_thread.start();
    QMetaObject::invokeMethod(m_worker, &ChatWorker::listModels);
    updateButtons();
}

ChatPanel::~ChatPanel() {
    m_worker->requestCancel();
    m_thread.quit();
    m_thread.wait();
}

void ChatPanel::buildWidgets(const QList<Database>& databases) {
    m_databases = named(new QComboBox, "databases");
    m_databases->setPlaceholderText(tr("Choose a database"));
    for (const Database& database : databases) {
        m_databases->addItem(database.name, database.file);
    }
    m_databases->setCurrentIndex(-1);
    m_models = named(new QComboBox, "models");
    m_conversation = named(new QTextBrowser, "conversation");
    m_question = named(new QLineEdit, "question");
    m_question->setPlaceholderText(tr("Ask about your data"));
    m_askButton = named(new QPushButton(tr("Ask")), "ask");
    m_cancelButton = named(new QPushButton(tr("Cancel")), "cancel");
    m_sql = named(new QPlainTextEdit, "sql");
    m_sql->setReadOnly(true);
    m_sql->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_sql->setPlaceholderText(tr("The SQL of the last answer"));
    m_runButton = named(new QPushButton(tr("Run, for reading only")), "run");
    m_table = named(new QTableWidget, "table");
    m_table->setAlternatingRowColors(true);
    m_table->verticalHeader()->hide();
    m_table->verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 6);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_saveButton = named(new QPushButton(tr("Save…")), "save");
    m_restoreButton = named(new QPushButton(tr("Restore…")), "restore");
    m_status = named(new QLabel, "status");
    m_status->setWordWrap(true);
    m_status->setTextFormat(Qt::PlainText);  // a service's words are data from outside
}

void ChatPanel::arrangeWidgets() {
    auto* top = new QHBoxLayout;
    top->addWidget(m_databases, 2);
    top->addWidget(m_models, 2);
    top->addWidget(m_saveButton);
    top->addWidget(m_restoreButton);
    auto* asking = new QHBoxLayout;
    asking->addWidget(m_question, 1);
    asking->addWidget(m_askButton);
    asking->addWidget(m_cancelButton);
    auto* running = new QHBoxLayout;
    running->addWidget(m_sql, 1);
    running->addWidget(m_runButton, 0, Qt::AlignTop);
    auto* all = new QVBoxLayout(this);
    all->addLayout(top);
    all->addWidget(m_conversation, 5);
    all->addLayout(asking);
    all->addLayout(running, 2);
    all->addWidget(m_table, 4);
    all->addWidget(m_status);
}

void ChatPanel::connectWorker() {
    connect(m_databases, &QComboBox::currentIndexChanged, this, [this](int index) {
        m_isDatabaseOpen = false;
        m_messages.clear();
        showConversation();
        updateButtons();
        const QString file = m_databases->itemData(index).toString();
        QMetaObject::invokeMethod(m_worker, [worker = m_worker, file] { worker->openDatabase(file); });
    });
    connect(m_question, &QLineEdit::returnPressed, this, &ChatPanel::ask);
    connect(m_question, &QLineEdit::textChanged, this, &ChatPanel::updateButtons);
    connect(m_askButton, &QPushButton::clicked, this, &ChatPanel::ask);
    connect(m_cancelButton, &QPushButton::clicked, this, [this] { m_worker->requestCancel(); });
    connect(m_runButton, &QPushButton::clicked, this, [this] {
        QMetaObject::invokeMethod(m_worker, [worker = m_worker, sql = m_sql->toPlainText()] { worker->runQuery(sql); });
    });
    connect(m_saveButton, &QPushButton::clicked, this, &ChatPanel::save);
    connect(m_restoreButton, &QPushButton::clicked, this, &ChatPanel::restore);
    m_redrawTimer.setSingleShot(true);
    connect(&m_redrawTimer, &QTimer::timeout, this, &ChatPanel::showConversation);
    connect(&m_progressTimer, &QTimer::timeout, this,
            [this] { setStatus(tr("Waiting for %1 s").arg(m_turnTime.elapsed() / 1000)); });

    connect(m_worker, &ChatWorker::modelsListed, this, [this](const QStringList& models, const QString& error) {
        m_models->clear();
        m_models->addItems(models);
        if (!error.isEmpty()) {
            setStatus(error);
        }
        updateButtons();
    });
    connect(m_worker, &ChatWorker::databaseOpened, this, [this](int tableCount, const QString& error) {
        m_isDatabaseOpen = error.isEmpty();
        if (m_models->count() == 0) {
            QMetaObject::invokeMethod(m_worker, &ChatWorker::listModels);  // the first attempt failed
        }
        setStatus(error.isEmpty()
                      ? tr("%1: %2 tables are told to the model").arg(m_databases->currentText()).arg(tableCount)
                      : error);
        updateButtons();
    });
    connect(m_worker, &ChatWorker::pieceArrived, this, [this](const QString& piece) {
        m_partialAnswer += piece;
        if (!m_redrawTimer.isActive()) {
            m_redrawTimer.start(30);
        }
    });
    connect(m_worker, &ChatWorker::turnEnded, this, &ChatPanel::endTurn);
    connect(m_worker, &ChatWorker::queryEnded, this, &ChatPanel::showTable);
    connect(m_worker, &ChatWorker::saved, this,
            [this](const QString& error) { setStatus(error.isEmpty() ? tr("Saved") : error); });
    connect(m_worker, &ChatWorker::restored, this, &ChatPanel::showRestored);
}

void ChatPanel::ask() {
    const QString question = m_question->text().trimmed();
    if (!m_askButton->isEnabled() || question.isEmpty()) {
        return;
    }
    m_messages.append({true, question});
    m_partialAnswer.clear();
    m_isTurnRunning = true;
    m_turnTime.start();
    m_progressTimer.start(1000);
    setStatus(tr("Waiting"));
    showConversation();
    updateButtons();
    m_worker->beginTurn(m_models->currentText(), question);
}

void ChatPanel::endTurn(const QString& answer, const QString& error, bool isCancelled) {
    m_isTurnRunning = false;
    m_progressTimer.stop();
    m_redrawTimer.stop();
    m_partialAnswer.clear();
    if (error.isEmpty()) {
        m_messages.append({false, answer});
        m_question->clear();
        m_sql->setPlainText(extractSQL(answer));
        m_table->clear();
        m_table->setRowCount(0);
        m_table->setColumnCount(0);
    } else {
        m_messages.removeLast();  // the conversation is as it was; the question stays in its field, to be asked again
    }
    setStatus(isCancelled ? tr("Cancelled") : error);
    showConversation();
    updateButtons();
}

void ChatPanel::showTable(const ChatTable& table, const QString& error) {
    m_table->setColumnCount(static_cast<int>(table.columns.size()));
    m_table->setHorizontalHeaderLabels(table.columns);
    m_table->setRowCount(static_cast<int>(table.rows.size()));
    for (int row = 0; row < m_table->rowCount(); ++row) {
        for (int column = 0; column < m_table->columnCount(); ++column) {
            m_table->setItem(row, column, new QTableWidgetItem(table.rows[row][column]));
        }
    }
    m_table->resizeColumnsToContents();
    const QString count = table.isTruncated ? tr("the first %1 rows") : tr("%1 rows");
    setStatus(error.isEmpty() ? count.arg(table.rows.size()) : error);
}

void ChatPanel::showRestored(const QList<ChatMessage>& messages, const QString& error) {
    if (error.isEmpty()) {
        m_messages = messages;
        m_sql->setPlainText(messages.isEmpty() ? QString() : extractSQL(messages.last().text));
        showConversation();
    }
    setStatus(error.isEmpty() ? tr("Restored") : error);
    updateButtons();
}

void ChatPanel::save() {
    const QString file = QFileDialog::getSaveFileName(this, tr("Save the conversation"), {}, {}, nullptr,
                                                      QFileDialog::DontUseNativeDialog);
    if (!file.isEmpty()) {
        QMetaObject::invokeMethod(m_worker, [worker = m_worker, file] { worker->save(file); });
    }
}

void ChatPanel::restore() {
    const QString file = QFileDialog::getOpenFileName(this, tr("Restore a conversation"), {}, {}, nullptr,
                                                      QFileDialog::DontUseNativeDialog);
    if (!file.isEmpty()) {
        QMetaObject::invokeMethod(m_worker, [worker = m_worker, file] { worker->restore(file); });
    }
}

void ChatPanel::showConversation() {
    QString html;
    for (const ChatMessage& message : m_messages) {
        html += message.isUser ? QStringLiteral("<p><b>%1</b></p>").arg(message.text.toHtmlEscaped())
                               : QStringLiteral("<p>%1</p>").arg(formatAnswer(message.text));
    }
    if (!m_partialAnswer.isEmpty()) {
        html += QStringLiteral("<p>%1</p>").arg(formatAnswer(m_partialAnswer));
    }
    m_conversation->setHtml(html);
    m_conversation->verticalScrollBar()->setValue(m_conversation->verticalScrollBar()->maximum());
}

void ChatPanel::setStatus(const QString& text) {
    m_status->setText(text);
}

void ChatPanel::updateButtons() {
    const bool canAsk = m_isDatabaseOpen && !m_isTurnRunning && m_models->count() > 0;
    m_askButton->setEnabled(canAsk && !m_question->text().trimmed().isEmpty());
    m_cancelButton->setEnabled(m_isTurnRunning);
    m_databases->setEnabled(!m_isTurnRunning);
    m_runButton->setEnabled(!m_isTurnRunning && !m_sql->toPlainText().isEmpty());
    m_saveButton->setEnabled(!m_isTurnRunning && !m_messages.isEmpty());
    m_restoreButton->setEnabled(!m_isTurnRunning && m_isDatabaseOpen);
}
