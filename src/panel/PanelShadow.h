#pragma once

#include <QColor>
#include <QImage>
#include <QQuickPaintedItem>
#include <QRectF>
#include <QtQml/qqmlregistration.h>

/// A soft shadow cast by a rounded rectangle: drawn blurred, offset and faded, and nothing
/// else. The item covers the area the shadow may fall on; `shape` is the casting rectangle
/// in the item's coordinates.
class PanelShadow : public QQuickPaintedItem {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(QRectF shape READ shape WRITE setShape NOTIFY shapeChanged)
    Q_PROPERTY(qreal cornerRadius READ cornerRadius WRITE setCornerRadius NOTIFY appearanceChanged)
    /// How far the shadow spreads; the blur's standard deviation is half of it.
    Q_PROPERTY(qreal blurRadius READ blurRadius WRITE setBlurRadius NOTIFY appearanceChanged)
    Q_PROPERTY(QColor color READ color WRITE setColor NOTIFY appearanceChanged)
    Q_PROPERTY(qreal offsetY READ offsetY WRITE setOffsetY NOTIFY appearanceChanged)

public:
    explicit PanelShadow(QQuickItem* parent = nullptr);

    QRectF shape() const { return m_shape; }
    void setShape(const QRectF& shape);
    qreal cornerRadius() const { return m_cornerRadius; }
    void setCornerRadius(qreal radius);
    qreal blurRadius() const { return m_blurRadius; }
    void setBlurRadius(qreal radius);
    QColor color() const { return m_color; }
    void setColor(const QColor& color);
    qreal offsetY() const { return m_offsetY; }
    void setOffsetY(qreal offset);

    void paint(QPainter* painter) override;

protected:
    void geometryChange(const QRectF& newGeometry, const QRectF& oldGeometry) override;

signals:
    void shapeChanged();
    void appearanceChanged();

private:
    void invalidate();

    QRectF m_shape;
    qreal m_cornerRadius = 0;
    qreal m_blurRadius = 0;
    QColor m_color = Qt::black;
    qreal m_offsetY = 0;
    QImage m_cache;
};
