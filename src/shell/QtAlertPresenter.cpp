#include "shell/QtAlertPresenter.h"

#include <QMessageBox>
#include <QPushButton>

namespace snipwren {
void QtAlertPresenter::present(const Alert& alert, std::function<void(int)> answered) {
    auto* const box = new QMessageBox;
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setTextFormat(Qt::PlainText);
    box->setIcon(alert.style == Alert::Style::critical ? QMessageBox::Critical : QMessageBox::Information);
    box->setWindowTitle("Snipwren");
    box->setText(QString::fromStdString(alert.title));
    box->setInformativeText(QString::fromStdString(alert.text));
    std::vector<QAbstractButton*> buttons;
    for (const std::string& title : alert.buttons) {
        auto* const button = box->addButton(QString::fromStdString(title),
                                            buttons.empty() ? QMessageBox::AcceptRole : QMessageBox::RejectRole);
        if (buttons.empty()) box->setDefaultButton(button);
        buttons.push_back(button);
    }
    // Without a button that means "no", Escape would do nothing.
    if (!buttons.empty()) box->setEscapeButton(buttons.back());
    QObject::connect(box, &QMessageBox::finished, box, [box, buttons, answered = std::move(answered)] {
        int chosen = -1;
        for (std::size_t i = 0; i < buttons.size(); ++i)
            if (box->clickedButton() == buttons[i]) chosen = static_cast<int>(i);
        if (answered) answered(chosen);
    });
    box->show();
    box->raise();
    box->activateWindow();
}
} // namespace snipwren
