// The model drawn by the library's renderer: a scene kept between frames, the
// view turned by dragging and zoomed by the wheel, the colour bar beside it.
#pragma once

#include <QImage>
#include <QTimer>
#include <QWidget>
#include <memory>
#include <vector>

#include "api/render/render.h"

namespace tundrel::view {

class FieldView : public QWidget {
    Q_OBJECT
public:
    explicit FieldView(QWidget* parent = nullptr);
    ~FieldView() override;

    // The container drawn; it must stay unchanged while it is set. nullptr
    // for none (a blank view).
    void setField(const FieldMasterD* field);
    // The values shown (one per node of the container) and their name.
    void setValues(std::vector<double> values, const QString& name);
    void setRange(double low, double high);
    void setColorMap(const ColorMap& map);
    void setView(const View& view);
    const View& view() const { return view_; }
    double low() const { return low_; }
    double high() const { return high_; }
    const ColorMap& colorMap() const { return map_; }

    // Renders at once with the given samples a pixel side; the drawing the
    // widget shows next.
    void renderNow(int samples = kFullSamples);
    // The last rendered model picture (without the colour bar).
    const QImage& image() const { return image_; }
    // Frames rendered since the view was made, and the samples of the last.
    int frames() const { return frames_; }
    int lastSamples() const { return lastSamples_; }

    static constexpr int kFullSamples = 2, kDragSamples = 1;

signals:
    void viewChanged();

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;

private:
    void schedule(int samples);
    QRect modelArea() const;
    QRect barArea() const;
    void drawColorBar(class QPainter& p) const;

    std::unique_ptr<FieldRenderer> renderer_;
    std::vector<double> values_;
    QString name_;
    View view_{"", 225.0, 30.0, 1.0};
    double low_ = 0.0, high_ = 1.0;
    ColorMap map_;
    QImage image_;
    int frames_ = 0;
    int lastSamples_ = 0;
    int pendingSamples_ = kFullSamples;
    QTimer renderTimer_;
    bool dragging_ = false;
    QPoint lastPos_;
};

}  // namespace tundrel::view
