#include "shell/SingleInstance.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusVirtualObject>

namespace snipwren {
namespace {
constexpr int callTimeout = 3000; // Milliseconds.
} // namespace

class SingleInstance::Object final : public QDBusVirtualObject {
public:
    explicit Object(Requests requests) : requests_(std::move(requests)) {}

    QString introspect(const QString&) const override {
        return QString("<interface name=\"%1\"><method name=\"ShowMenu\"/><method name=\"Quit\"/>"
                       "<method name=\"Capture\"><arg type=\"s\" direction=\"in\" name=\"command\"/>"
                       "<arg type=\"b\" direction=\"out\"/></method>"
                       "<method name=\"Undo\"><arg type=\"b\" direction=\"out\"/><arg type=\"s\" "
                       "direction=\"out\"/></method>"
                       "<method name=\"Status\"><arg type=\"s\" direction=\"out\"/></method></interface>")
            .arg(SingleInstance::interface);
    }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        if (message.interface() != SingleInstance::interface) return false;
        const QString member = message.member();
        QDBusMessage reply = message.createReply();
        if (member == "ShowMenu" && requests_.showMenu) {
            requests_.showMenu();
        } else if (member == "Quit" && requests_.quit) {
            requests_.quit();
        } else if (member == "Capture" && requests_.capture && message.arguments().size() == 1) {
            reply << requests_.capture(message.arguments().first().toString().toStdString());
        } else if (member == "Undo" && requests_.undo) {
            requests_.undo([connection, reply](bool done, const std::string& sentence) mutable {
                reply << done << QString::fromStdString(sentence);
                connection.send(reply);
            });
            return true;
        } else if (member == "Status" && requests_.status) {
            reply << QString::fromStdString(requests_.status());
        } else {
            return false;
        }
        if (message.isReplyRequired()) connection.send(reply);
        return true;
    }

private:
    const Requests requests_;
};

SingleInstance::SingleInstance() = default;

SingleInstance::~SingleInstance() = default;

SingleInstance::Claim SingleInstance::claim(Requests requests) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) return Claim::noBus;
    object_ = std::make_unique<Object>(std::move(requests));
    // Before the name, so that whoever finds the name finds this too.
    bus.registerVirtualObject(path, object_.get());
    const auto answer = bus.interface()->registerService(service, QDBusConnectionInterface::DontQueueService,
                                                         QDBusConnectionInterface::DontAllowReplacement);
    if (answer.isValid() && answer.value() == QDBusConnectionInterface::ServiceRegistered) return Claim::claimed;
    bus.unregisterObject(path);
    object_.reset();
    return answer.isValid() ? Claim::alreadyRunning : Claim::noBus;
}

bool SingleInstance::askForMenu() {
    const QDBusMessage call = QDBusMessage::createMethodCall(service, path, interface, "ShowMenu");
    return QDBusConnection::sessionBus().call(call, QDBus::Block, callTimeout).type() == QDBusMessage::ReplyMessage;
}
} // namespace snipwren
