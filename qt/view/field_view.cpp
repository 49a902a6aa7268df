#include "qt/view/field_view.h"

#include <QMouseEvent>
#include <QPainter>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>

namespace tundrel::view {

namespace {

constexpr double kDegreesPerPixel = 0.5;
constexpr double kZoomPerNotch = 1.15;

}  // namespace

FieldView::FieldView(QWidget* parent) : QWidget(parent), map_(*ColorMap::named("viridis")) {
    setMinimumSize(320, 240);
    setFocusPolicy(Qt::StrongFocus);
    renderTimer_.setSingleShot(true);
    connect(&renderTimer_, &QTimer::timeout, this, [this] { renderNow(pendingSamples_); });
}

FieldView::~FieldView() = default;

void FieldView::setField(const FieldMasterD* field) {
    renderer_.reset();
    values_.clear();
    if (field != nullptr && field->blockCount() > 0) renderer_ = std::make_unique<FieldRenderer>(*field);
    schedule(kFullSamples);
}

void FieldView::setValues(std::vector<double> values, const QString& name) {
    values_ = std::move(values);
    name_ = name;
    schedule(kFullSamples);
}

void FieldView::setRange(double low, double high) {
    low_ = low;
    high_ = high;
    schedule(kFullSamples);
}

void FieldView::setColorMap(const ColorMap& map) {
    map_ = map;
    schedule(kFullSamples);
}

void FieldView::setView(const View& view) {
    view_ = view;
    schedule(kFullSamples);
}

QRect FieldView::barArea() const {
    const int band = std::max(90, fontMetrics().horizontalAdvance(name_) + 24);
    return {width() - band, 0, band, height()};
}

QRect FieldView::modelArea() const { return {0, 0, std::max(1, width() - barArea().width()), height()}; }

void FieldView::schedule(int samples) {
    pendingSamples_ = renderTimer_.isActive() ? std::max(pendingSamples_, samples) : samples;
    renderTimer_.start(0);
}

void FieldView::renderNow(int samples) {
    renderTimer_.stop();
    const QRect area = modelArea();
    const qreal ratio = devicePixelRatioF();
    const int w = std::clamp(static_cast<int>(area.width() * ratio), 16, 8192);
    const int h = std::clamp(static_cast<int>(area.height() * ratio), 16, 8192);
    if (!renderer_ || values_.empty() || !(low_ < high_)) {
        image_ = QImage();
        update();
        return;
    }
    RgbaImage picture;
    try {
        picture = renderer_->render(values_, view_, low_, high_, map_, w, h, samples);
    } catch (const arrayWorks::GenericError&) {
        // Values of another model than the scene's: nothing to draw until
        // the two match again.
        image_ = QImage();
        update();
        return;
    }
    image_ = QImage(picture.pixels.data(), picture.width, picture.height, 4 * picture.width,
                    QImage::Format_RGBA8888)
                 .copy();
    image_.setDevicePixelRatio(ratio);
    ++frames_;
    lastSamples_ = samples;
    update();
}

void FieldView::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.fillRect(rect(), Qt::white);
    if (!image_.isNull()) p.drawImage(modelArea().topLeft(), image_);
    if (renderer_ && !values_.empty() && low_ < high_) drawColorBar(p);
    if (image_.isNull()) {
        p.setPen(Qt::darkGray);
        p.drawText(modelArea(), Qt::AlignCenter,
                   renderer_ ? tr("No field to show") : tr("Open a model with File > Open"));
    }
}

void FieldView::drawColorBar(QPainter& p) const {
    const QRect band = barArea();
    const QFontMetrics fm = fontMetrics();
    const int top = band.top() + 2 * fm.height(), bottom = band.bottom() - fm.height();
    const int x = band.left() + 8, barWidth = 18;
    if (bottom - top < 20) return;
    p.setPen(Qt::black);
    p.drawText(QRect(band.left() + 4, band.top() + fm.height() / 2, band.width() - 8, fm.height()),
               Qt::AlignLeft | Qt::AlignVCenter, name_);
    for (int y = top; y <= bottom; ++y) {
        float rgb[3];
        map_.color(1.0 - static_cast<double>(y - top) / (bottom - top), rgb);
        p.setPen(QColor::fromRgbF(rgb[0], rgb[1], rgb[2]));
        p.drawLine(x, y, x + barWidth - 1, y);
    }
    p.setPen(Qt::black);
    p.drawRect(x, top, barWidth - 1, bottom - top);
    auto yOf = [&](double v) { return bottom - static_cast<int>(std::lround((v - low_) / (high_ - low_) * (bottom - top))); };
    std::vector<double> marks = colorBarTicks(low_, high_);
    // The ends always, round numbers between them where they leave room.
    const int gap = fm.height();
    marks.erase(std::remove_if(marks.begin(), marks.end(),
                               [&](double v) { return std::abs(yOf(v) - top) < gap || std::abs(yOf(v) - bottom) < gap; }),
                marks.end());
    marks.insert(marks.begin(), high_);
    marks.push_back(low_);
    for (double v : marks) {
        const int y = yOf(v);
        p.drawLine(x + barWidth, y, x + barWidth + 4, y);
        p.drawText(QRect(x + barWidth + 7, y - fm.height() / 2, band.right() - x - barWidth - 7, fm.height()),
                   Qt::AlignLeft | Qt::AlignVCenter, QString::number(v, 'g', 4));
    }
}

void FieldView::resizeEvent(QResizeEvent*) { schedule(kFullSamples); }

void FieldView::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) return;
    dragging_ = true;
    lastPos_ = event->position().toPoint();
}

void FieldView::mouseMoveEvent(QMouseEvent* event) {
    if (!dragging_) return;
    const QPoint d = event->position().toPoint() - lastPos_;
    lastPos_ = event->position().toPoint();
    view_.azimuth = std::fmod(view_.azimuth - d.x() * kDegreesPerPixel + 360.0, 360.0);
    view_.elevation = std::clamp(view_.elevation + d.y() * kDegreesPerPixel, -89.0, 89.0);
    schedule(kDragSamples);
    emit viewChanged();
}

void FieldView::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || !dragging_) return;
    dragging_ = false;
    schedule(kFullSamples);
}

void FieldView::wheelEvent(QWheelEvent* event) {
    const double notches = event->angleDelta().y() / 120.0;
    if (notches == 0.0) return;
    view_.zoom = std::clamp(view_.zoom * std::pow(kZoomPerNotch, notches), 0.1, 50.0);
    schedule(dragging_ ? kDragSamples : kFullSamples);
    emit viewChanged();
}

}  // namespace tundrel::view
