#include "panel/PanelShadow.h"

#include <QPainter>
#include <QPainterPath>

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

// The shadow is smooth, so it is blurred at a quarter of its size and scaled up: cheap enough
// to redo on every frame while the card grows.
constexpr qreal workScale = 0.25;
constexpr int boxPasses = 3;
// The item covers the whole window; its picture is kept at this scale and drawn scaled up,
// which a shadow this soft does not show, for a sixteenth of the memory.
constexpr qreal textureScale = 0.25;

// One pass of a moving average of width 2 * radius + 1 along rows (or columns).
void boxBlur(std::vector<float>& values, int width, int height, int radius, bool alongRows)
{
    const int length = alongRows ? width : height;
    const int lines = alongRows ? height : width;
    const int stride = alongRows ? 1 : width;
    const int lineStride = alongRows ? width : 1;
    const float scale = 1.0f / float(2 * radius + 1);
    std::vector<float> line(static_cast<size_t>(length));
    for (int l = 0; l < lines; ++l) {
        float* base = values.data() + static_cast<ptrdiff_t>(l) * lineStride;
        for (int i = 0; i < length; ++i) {
            line[static_cast<size_t>(i)] = base[static_cast<ptrdiff_t>(i) * stride];
        }
        const auto at = [&](int i) {
            return (i < 0 || i >= length) ? 0.0f : line[static_cast<size_t>(i)];
        };
        float sum = 0;
        for (int i = -radius; i <= radius; ++i) {
            sum += at(i);
        }
        for (int i = 0; i < length; ++i) {
            base[static_cast<ptrdiff_t>(i) * stride] = sum * scale;
            sum += at(i + radius + 1) - at(i - radius);
        }
    }
}

} // namespace

PanelShadow::PanelShadow(QQuickItem* parent)
    : QQuickPaintedItem(parent)
{
    setAntialiasing(true);
    connect(this, &QQuickItem::widthChanged, this, [this] { update(); });
    connect(this, &QQuickItem::heightChanged, this, [this] { update(); });
}

void PanelShadow::geometryChange(const QRectF& newGeometry, const QRectF& oldGeometry)
{
    setTextureSize(QSize(std::max(1, int(std::ceil(newGeometry.width() * textureScale))),
                         std::max(1, int(std::ceil(newGeometry.height() * textureScale)))));
    QQuickPaintedItem::geometryChange(newGeometry, oldGeometry);
}

void PanelShadow::setShape(const QRectF& shape)
{
    if (m_shape == shape) {
        return;
    }
    const bool resized = m_shape.size() != shape.size();
    m_shape = shape;
    if (resized) {
        m_cache = {};
    }
    update();
    emit shapeChanged();
}

void PanelShadow::setCornerRadius(qreal radius)
{
    if (qFuzzyCompare(m_cornerRadius, radius)) {
        return;
    }
    m_cornerRadius = radius;
    invalidate();
}

void PanelShadow::setBlurRadius(qreal radius)
{
    if (qFuzzyCompare(m_blurRadius, radius)) {
        return;
    }
    m_blurRadius = radius;
    invalidate();
}

void PanelShadow::setColor(const QColor& color)
{
    if (m_color == color) {
        return;
    }
    m_color = color;
    invalidate();
}

void PanelShadow::setOffsetY(qreal offset)
{
    if (qFuzzyCompare(m_offsetY, offset)) {
        return;
    }
    m_offsetY = offset;
    update();
    emit appearanceChanged();
}

void PanelShadow::invalidate()
{
    m_cache = {};
    update();
    emit appearanceChanged();
}

void PanelShadow::paint(QPainter* painter)
{
    if (m_shape.isEmpty() || m_color.alpha() == 0) {
        return;
    }
    const qreal sigma = m_blurRadius / 2;
    const qreal extent = 3 * sigma;
    if (m_cache.isNull()) {
        const int width = int(std::ceil((m_shape.width() + 2 * extent) * workScale));
        const int height = int(std::ceil((m_shape.height() + 2 * extent) * workScale));
        QImage mask(width, height, QImage::Format_Alpha8);
        mask.fill(0);
        {
            QPainter p(&mask);
            p.setRenderHint(QPainter::Antialiasing);
            QPainterPath path;
            path.addRoundedRect(QRectF(extent, extent, m_shape.width(), m_shape.height()),
                                m_cornerRadius, m_cornerRadius);
            p.scale(workScale, workScale);
            p.fillPath(path, Qt::black);
        }
        std::vector<float> alpha(static_cast<size_t>(width) * static_cast<size_t>(height));
        for (int y = 0; y < height; ++y) {
            const uchar* row = mask.constScanLine(y);
            for (int x = 0; x < width; ++x) {
                alpha[static_cast<size_t>(y) * width + x] = row[x] / 255.0f;
            }
        }
        // Three box passes of this width come close to a Gaussian of the given deviation.
        const qreal s = sigma * workScale;
        const int radius =
            std::max(0, int(std::lround((std::sqrt(12 * s * s / boxPasses + 1) - 1) / 2)));
        for (int pass = 0; pass < boxPasses; ++pass) {
            boxBlur(alpha, width, height, radius, true);
            boxBlur(alpha, width, height, radius, false);
        }
        m_cache = QImage(width, height, QImage::Format_ARGB32_Premultiplied);
        const QColor opaque(m_color.red(), m_color.green(), m_color.blue());
        for (int y = 0; y < height; ++y) {
            auto* row = reinterpret_cast<QRgb*>(m_cache.scanLine(y));
            for (int x = 0; x < width; ++x) {
                const float a = std::clamp(alpha[static_cast<size_t>(y) * width + x], 0.0f, 1.0f);
                row[x] = qPremultiply(
                    qRgba(opaque.red(), opaque.green(), opaque.blue(), int(std::lround(a * 255))));
            }
        }
    }
    const QRectF target =
        m_shape.adjusted(-extent, -extent, extent, extent).translated(0, m_offsetY);
    painter->setRenderHint(QPainter::SmoothPixmapTransform);
    painter->setOpacity(m_color.alphaF());
    painter->drawImage(target, m_cache);
}
