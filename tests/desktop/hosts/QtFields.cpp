// A window of text fields in Qt, which is told what to do line by line on standard input (see FieldHost.h).
#include <cstdio>
#include <iostream>
#include <map>

#include <QApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QSocketNotifier>
#include <QTextEdit>
#include <QVBoxLayout>

namespace {
void answer(const QByteArray& text) {
    std::puts(text.constData());
    std::fflush(stdout);
}

class Fields : public QWidget {
public:
    Fields() {
        setWindowTitle("Qt fields");
        auto* const column = new QVBoxLayout(this);
        for (const char* name : {"entry", "password", "readonly"}) {
            auto* const line = new QLineEdit;
            lines_[name] = line;
            column->addWidget(line);
        }
        lines_["entry"]->setPlaceholderText("Find things");
        lines_["entry"]->setAccessibleName("Search box");
        lines_["password"]->setEchoMode(QLineEdit::Password);
        lines_["readonly"]->setReadOnly(true);
        column->addWidget(&multi_);
        column->addWidget(&plain_);
        resize(460, 320);
        lines_["entry"]->setFocus();
    }

    void obey(const QByteArray& line) {
        const QByteArray command = line.left(line.indexOf(' '));
        const QByteArray rest = line.mid(command.size() + 1).trimmed();
        const QByteArray name = rest.left(rest.indexOf(' ') < 0 ? rest.size() : rest.indexOf(' '));
        const QByteArray argument = rest.mid(name.size() + 1);
        QLineEdit* const field = lines_.count(name) ? lines_[name] : nullptr;
        if (command == "focus") {
            QWidget* const widget = field             ? static_cast<QWidget*>(field)
                                    : name == "plain" ? static_cast<QWidget*>(&plain_)
                                                      : &multi_;
            widget->setFocus();
            if (field) field->setCursorPosition(int(field->text().size()));
            answer("ok");
        } else if (command == "set") {
            const QString text = QJsonDocument::fromJson("[" + argument + "]").array().at(0).toString();
            if (field) {
                field->setText(text);
            } else if (name == "plain") {
                plain_.setPlainText(text);
                plain_.moveCursor(QTextCursor::End);
            } else {
                multi_.setPlainText(text);
                multi_.moveCursor(QTextCursor::End);
            }
            answer("ok");
        } else if (command == "get") {
            const QJsonArray value{field ? field->text() : multi_.toPlainText()};
            const QByteArray json = QJsonDocument(value).toJson(QJsonDocument::Compact);
            answer(json.mid(1, json.size() - 2));
        } else if (command == "select") {
            const QList<QByteArray> ends = argument.split(' ');
            if (field) field->setSelection(ends[0].toInt(), ends[1].toInt() - ends[0].toInt());
            answer("ok");
        } else if (command == "caret") {
            const QRect caret = multi_.cursorRect();
            const QPoint place = multi_.viewport()->mapTo(this, caret.topLeft());
            answer(QString("%1 %2 %3").arg(place.x()).arg(place.y()).arg(caret.height()).toUtf8());
        } else {
            answer("what?");
        }
    }

protected:
    bool event(QEvent* event) override {
        if (event->type() == QEvent::WindowActivate && !told_) {
            told_ = true;
            answer("ready");
        }
        return QWidget::event(event);
    }

private:
    std::map<QByteArray, QLineEdit*> lines_;
    QTextEdit multi_;
    QPlainTextEdit plain_;
    bool told_ = false;
};
} // namespace

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    Fields fields;
    fields.show();
    QSocketNotifier input(0, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, [&] {
        std::string line;
        if (!std::getline(std::cin, line)) return application.quit();
        fields.obey(QByteArray::fromStdString(line));
    });
    return application.exec();
}
