#include "cli/CaptureSession.h"

namespace snipwren {
CaptureSession::CaptureSession(Environment& environment, const VirtualHost::RealParts& real)
    : environment_(environment),
      host_(environment.mainQueue(), environment.clock(), real),
      application_(environment, host_.host()),
      subscription_(environment.notifications().observe("PresentCaptureFailure", [this](const UserInfo& info) {
          const std::string message = text(info, "message");
          failures_.push_back({text(info, "command"), message.empty() ? text(info, "detail") : message});
      })) {
    host_.overlay().setRouter(&application_.router());
    application_.open();
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
