#include "cli/CaptureSession.h"

#include <cstdlib>
#include <ostream>

namespace snipwren {
CaptureSession::CaptureSession(CommandContext& context, const VirtualHost::RealParts& real)
    : context_(context),
      environment_(context.environment),
      host_(environment_.mainQueue(), environment_.clock(), real),
      application_(environment_, host_.host()),
      subscription_(environment_.notifications().observe("PresentCaptureFailure", [this](const UserInfo& info) {
          const std::string message = text(info, "message").empty() ? text(info, "detail") : text(info, "message");
          if (flag(info, "informational")) {
              context_.err << "snipwren: " << message << "\n";
          } else {
              failures_.push_back({text(info, "command"), message});
          }
      })) {
    host_.overlay().setListener(&application_.router());
    application_.open();
}

CaptureSession::~CaptureSession() {
    if (application_.finish()) return;
    context_.out << std::flush;
    context_.err << std::flush;
    std::_Exit(context_.status);
}

Delivery::Recovered CaptureSession::recover() {
    auto recovered = application_.recover();
    settle();
    return recovered;
}

void CaptureSession::settle() {
    ThreadQueue& loop = environment_.loop();
    // What is ready may start more, so it is only over when nothing is ready and nothing runs elsewhere.
    loop.runReady();
    while (!application_.isIdle()) {
        loop.runUntil([this] { return application_.isIdle(); }, std::chrono::milliseconds(50));
        loop.runReady();
    }
}
} // namespace snipwren
