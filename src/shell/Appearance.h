#pragma once

#include <QColor>
#include <QString>

namespace snipwren {
/// The colours and the style sheet of our own windows, light or dark.
class Appearance {
public:
    enum class Scheme { light, dark };

    /// What the desktop prefers: its settings portal when there is one, else the toolkit's palette.
    static Scheme preferredScheme();

    explicit Appearance(Scheme scheme) : scheme_(scheme) {}
    Scheme scheme() const { return scheme_; }
    QString overlayStyle() const;
    QString noticeStyle() const;

private:
    const Scheme scheme_;
};
} // namespace snipwren
