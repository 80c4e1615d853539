#include "shell/CaptureOverlayWindow.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QVBoxLayout>

#include "shell/ScreenPixels.h"
#include "shell/WindowPlacement.h"

namespace snipwren {
namespace {
/// Far above what anybody types, and far below what would hurt; the default would cut a long paste silently.
constexpr int maxTextLength = 4'000'000;

QString qt(std::string_view text) { return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())); }

KeptKey keptKey(const QKeyEvent& event) {
    const auto code = [&] {
        switch (event.key()) {
        case Qt::Key_Return: return keycode::returnKey;
        case Qt::Key_Enter: return keycode::keypadEnter;
        case Qt::Key_Escape: return keycode::escape;
        case Qt::Key_Tab: return keycode::tab;
        case Qt::Key_Space: return keycode::space;
        case Qt::Key_Backspace: return keycode::deleteKey;
        case Qt::Key_Left: return keycode::leftArrow;
        case Qt::Key_Right: return keycode::rightArrow;
        case Qt::Key_Up: return keycode::upArrow;
        case Qt::Key_Down: return keycode::downArrow;
        default: return keycode::unknown;
        }
    };
    const Qt::KeyboardModifiers held = event.modifiers();
    return {code(), event.text().toStdString(),
            Modifiers{held.testFlag(Qt::ControlModifier), held.testFlag(Qt::ShiftModifier),
                      held.testFlag(Qt::AltModifier), held.testFlag(Qt::MetaModifier)}};
}

void setTextOrHide(QLabel& label, const QString& text) {
    label.setText(text);
    label.setVisible(!text.isEmpty());
}
} // namespace

CaptureOverlayWindow::CaptureOverlayWindow(const Appearance& appearance)
    : QFrame(nullptr, Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::X11BypassWindowManagerHint),
      grab_(*this) {
    setObjectName("overlay");
    setWindowTitle("Snipwren capture");
    setAccessibleName("Snipwren capture");
    setAttribute(Qt::WA_ShowWithoutActivating);
    title_.setObjectName("title");
    subtitle_.setObjectName("subtitle");
    field_.setObjectName("field");
    field_.setMaxLength(maxTextLength);
    // A menu of its own would need the keyboard that this window holds.
    field_.setContextMenuPolicy(Qt::NoContextMenu);
    field_.installEventFilter(this);
    choices_.setObjectName("choices");
    choices_.setAccessibleName("Choices");
    choices_.setFocusPolicy(Qt::NoFocus);
    choices_.setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    choices_.setUniformItemSizes(true);
    preview_.setObjectName("preview");
    preview_.setAccessibleName("Result");
    fault_.setObjectName("fault");
    hint_.setObjectName("hint");
    for (QLabel* label : {&title_, &subtitle_, &preview_, &fault_, &hint_}) {
        label->setTextFormat(Qt::PlainText);
        label->setTextInteractionFlags(Qt::NoTextInteraction);
    }
    fault_.setWordWrap(true);

    auto* const column = new QVBoxLayout(this);
    column->setContentsMargins(12, 10, 12, 10);
    column->setSpacing(5);
    for (QWidget* widget :
         {static_cast<QWidget*>(&title_), static_cast<QWidget*>(&subtitle_), static_cast<QWidget*>(&field_),
          static_cast<QWidget*>(&choices_), static_cast<QWidget*>(&preview_), static_cast<QWidget*>(&fault_),
          static_cast<QWidget*>(&hint_)})
        column->addWidget(widget);
    setFixedWidth(width);
    setAppearance(appearance);

    QObject::connect(&field_, &QLineEdit::textChanged, [this](const QString& text) {
        if (open_ && !isSettingText_ && listener_) listener_->handleMessageInputChange(text.toStdString());
    });
    QObject::connect(&choices_, &QListWidget::itemClicked, [this](QListWidgetItem* item) {
        if (!listener_) return;
        listener_->moveSelection(choices_.row(item) - choices_.currentRow());
        listener_->commitCapture();
    });
    // Made now, so that the first capture does not wait for it.
    ensurePolished();
    winId();
}

void CaptureOverlayWindow::setAppearance(const Appearance& appearance) { setStyleSheet(appearance.overlayStyle()); }

void CaptureOverlayWindow::update(const CaptureState& state) {
    open_ = state.currentTarget != nullptr && !state.isConfirming;
    const QString text = qt(state.messageInput);
    isSettingText_ = true;
    if (field_.text() != text) field_.setText(text);
    isSettingText_ = false;
    if (!state.currentTarget) return;

    const std::string& command = state.currentTarget->commandName();
    const CaptureTargetHint* const hint = state.currentTarget->hint();
    setTextOrHide(title_, hint ? qt(hint->title) : QString());
    QString subtitle = hint ? qt(hint->subtitle) : QString();
    if (state.isTargetConfirmed && state.confirmedTarget) subtitle = "To " + qt(state.confirmedTarget->displayName);
    setTextOrHide(subtitle_, subtitle);
    field_.setPlaceholderText(qt(state.currentTarget->placeholder(state.isPickerOpen())));
    field_.setAccessibleName(state.isPickerOpen() ? "Filter of the choices" : qt("Text to capture with //" + command));
    field_.setAccessibleDescription(subtitle);
    showChoices(state);
    showMessages(state);
    if (isVisible()) place();
}

void CaptureOverlayWindow::showChoices(const CaptureState& state) {
    choices_.setVisible(state.isPickerOpen() && !state.shownOptions.empty());
    if (!state.isPickerOpen()) return;
    bool same = choices_.count() == static_cast<int>(state.shownOptions.size());
    for (int row = 0; same && row < choices_.count(); ++row)
        same = choices_.item(row)->text() == qt(state.shownOptions[static_cast<std::size_t>(row)].displayName);
    if (!same) {
        choices_.clear();
        for (const PickerOption& option : state.shownOptions) choices_.addItem(qt(option.displayName));
    }
    for (std::size_t row = 0; row < state.shownOptions.size(); ++row) {
        if (state.selectedOption != state.shownOptions[row]) continue;
        choices_.setCurrentRow(static_cast<int>(row));
        choices_.scrollToItem(choices_.item(static_cast<int>(row)));
        // The focus stays in the field, so this is where a reader hears which choice is meant.
        field_.setAccessibleDescription("Selected: " + qt(state.shownOptions[row].displayName));
    }
    const int rows = std::min(choices_.count(), maxVisibleChoices);
    if (rows > 0) choices_.setFixedHeight(rows * choices_.sizeHintForRow(0) + 2 * choices_.frameWidth());
}

void CaptureOverlayWindow::showMessages(const CaptureState& state) {
    const auto& preview = state.calcLivePreviewText ? state.calcLivePreviewText : state.livePreviewText;
    setTextOrHide(preview_, preview ? qt(*preview) : QString());
    QString fault;
    QString hint;
    if (state.isPickerOpen()) {
        if (state.isLoadingOptions && state.pickerOptions.empty())
            hint = "Loading the choices…";
        else if (state.pickerOptions.empty())
            fault = "There is nothing to choose from. Press Escape, then look at the target's settings.";
        else if (state.shownOptions.empty())
            fault = "Nothing matches this filter.";
        else
            hint = "↑ ↓ to choose · Return to confirm · Escape to cancel";
    } else if (!state.fault.empty()) {
        fault = qt(state.fault);
    } else if (state.isWaitingForDisk) {
        hint = "The disk takes its time. Escape leaves; the capture goes on by itself.";
    } else if (state.offeredText) {
        hint = "Tab takes back: " + field_.fontMetrics().elidedText(qt(*state.offeredText), Qt::ElideRight, width / 2);
    }
    setTextOrHide(fault_, fault);
    setTextOrHide(hint_, hint);
}

void CaptureOverlayWindow::place() {
    // A label that wraps tells its height only when asked with a width.
    if (!fault_.isHidden()) {
        const QMargins margins = layout()->contentsMargins();
        fault_.setFixedHeight(fault_.heightForWidth(width - margins.left() - margins.right()));
    }
    layout()->invalidate();
    const int wanted = layout()->totalSizeHint().height();
    setFixedHeight(wanted);
    QScreen* const screen = ScreenPixels::screenAt(anchor_);
    if (!screen) return;
    const Point at = WindowPlacement::besideAnchor(ScreenPixels::toUnits(anchor_, *screen), width, wanted,
                                                   ScreenPixels::visibleUnits(*screen));
    move(static_cast<int>(at.x), static_cast<int>(at.y));
}

void CaptureOverlayWindow::present(const Rect& anchor) {
    anchor_ = anchor;
    place();
    show();
    raise();
    field_.setFocus(Qt::OtherFocusReason);
    isPresenting_ = true;
    grab_.take([this](bool taken) { gotKeyboard(taken); });
    isPresenting_ = false;
    outside_.start(static_cast<unsigned>(winId()), [this] {
        if (listener_) listener_->cancelCapture();
    });
}

void CaptureOverlayWindow::gotKeyboard(bool taken) {
    if (!isVisible()) return;
    if (!taken) {
        // Somebody holds on to the keyboard. As an ordinary active window it may still get the next keys.
        waitsForFocus_ = true;
        activateWindow();
        return;
    }
    hasKeyboard_ = true;
    // Whoever presents is in the middle of it, asks afterwards, and hears it once more.
    if (isPresenting_)
        QTimer::singleShot(0, this, [this] { tellBecameKey(); });
    else
        tellBecameKey();
}

void CaptureOverlayWindow::tellBecameKey() {
    if (hasKeyboard_ && listener_) listener_->overlayDidBecomeKey();
}

void CaptureOverlayWindow::dismiss() {
    outside_.stop();
    hasKeyboard_ = false;
    waitsForFocus_ = false;
    // Keys pressed up to this moment still come here and are passed on; hidden at once, the window would drop them.
    grab_.release([this] {
        if (!open_) hide();
        if (listener_) listener_->overlayDidReturnKeyboard();
    });
}

bool CaptureOverlayWindow::eventFilter(QObject* watched, QEvent* event) {
    if (watched == &field_) {
        if (event->type() == QEvent::FocusIn && waitsForFocus_) {
            waitsForFocus_ = false;
            hasKeyboard_ = true;
            tellBecameKey();
        }
        if (event->type() == QEvent::KeyPress) {
            const auto& key = static_cast<const QKeyEvent&>(*event);
            if (grab_.takesLastKey(key)) return true;
            if (!open_) {
                if (listener_) listener_->handleOverlayKey(keptKey(key));
                return true;
            }
            if (handleKey(key.key(), key.modifiers())) return true;
        }
        // Escape and Return must reach the field even where they are shortcuts.
        if (event->type() == QEvent::ShortcutOverride) event->accept();
    }
    return QFrame::eventFilter(watched, event);
}

bool CaptureOverlayWindow::handleKey(int key, Qt::KeyboardModifiers modifiers) {
    if (!listener_) return false;
    switch (key) {
    case Qt::Key_Return:
    case Qt::Key_Enter: listener_->commitCapture(); return true;
    case Qt::Key_Escape: listener_->cancelCapture(); return true;
    case Qt::Key_Tab:
    case Qt::Key_Backtab: listener_->acceptOfferedText(); return true;
    case Qt::Key_Up:
    case Qt::Key_Down: listener_->moveSelection(key == Qt::Key_Up ? -1 : 1); return true;
    case Qt::Key_Backspace:
        return field_.text().isEmpty() && modifiers == Qt::NoModifier && listener_->handleDeleteOnEmptyInput();
    default: return false;
    }
}
} // namespace snipwren
