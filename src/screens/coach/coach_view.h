#pragma once

#include "core/pose_frame.h"

#include <QImage>
#include <QWidget>

#include <optional>

namespace tovin {

// The coach's screen: the camera picture with the skeleton over it, the exercise, what to do,
// the counts, and the keys.
class CoachView final : public QWidget {
    Q_OBJECT
public:
    explicit CoachView(QWidget* parent = nullptr);
    void showFrame(const QImage& image, const PoseFrame& pose);
    void setCoach(const QString& name) {
        name_ = name;
        update();
    }
    void setStatus(const QString& status, const std::optional<QString>& detail);
    void setCounts(int reps, int clean, int required);

    QString status() const { return status_; }
    QString detail() const { return detail_; }
    QString name() const { return name_; }
    QString legend() const { return QStringLiteral("1 squats · 2 jacks · 3 push-ups · R reset"); }
    bool hasFrame() const { return !image_.isNull(); }

protected:
    void paintEvent(QPaintEvent*) override;

private:
    QImage image_;
    PoseFrame pose_;
    QString name_;
    QString status_ = QStringLiteral("Starting camera…");
    QString detail_;
    int reps_ = 0, clean_ = 0, required_ = 0;
};

} // namespace tovin
