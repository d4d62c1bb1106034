#include "shell/KestrelFrames.h"

#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QPolygonF>
#include <QRadialGradient>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace kestrel::shell {

namespace {

// Everything is drawn on a 100 x 100 canvas and scaled to the size asked for.
constexpr double Canvas = 100.0;

// The bird is seen from behind with its body leaning away from the viewer, as
// a hovering kestrel holds itself. A wing beats about the body's long axis,
// which points into the picture at this angle: the wings rise and fall on
// screen and shorten towards the top and bottom of the stroke.
constexpr double Tilt = 45.0 * std::numbers::pi / 180.0;

constexpr double ShoulderX = 6.0; // from the middle of the body
constexpr double ShoulderY = 40.0;
constexpr double ArmLength = 16.0;  // shoulder to wrist
constexpr double HandLength = 25.0; // wrist to wing tip
constexpr double ArmShare = 0.4;    // the part of the outline that belongs to the arm

const QColor Russet(0xb8, 0x5a, 0x2c);
const QColor RussetDark(0x9c, 0x4a, 0x24);
const QColor WingTip(0x2a, 0x1e, 0x18);
const QColor Secondaries(0x4e, 0x33, 0x24);
const QColor BlueGrey(0x86, 0x93, 0xa4);
const QColor BlueGreyLight(0xa9, 0xb5, 0xc4);
const QColor Spot(0x2b, 0x1d, 0x16);
const QColor Outline(0x3a, 0x28, 0x1e);

// One wing's outline from root (u = 0) to tip (u = 1): how far the leading
// and trailing edges lie from the wing's spine, towards the tail. The edges
// meet at the pointed tip, and the hand sweeps back as a falcon's does.
struct EdgeNode {
    double u;
    double lead;
    double trail;
};
constexpr std::array<EdgeNode, 7> Edges{{
    {0.00, -2.0, 13.0},
    {0.20, -3.2, 15.0},
    {0.40, -3.6, 15.6},
    {0.60, -2.4, 14.4},
    {0.80, 0.6, 11.6},
    {0.92, 3.6, 9.0},
    {1.00, 6.8, 6.8},
}};

// Catmull-Rom through the table, so the outline has no corners at its nodes.
double edgeAt(double u, double EdgeNode::*field) {
    u = std::clamp(u, 0.0, 1.0);
    std::size_t i = 0;
    while (i + 2 < Edges.size() && u > Edges[i + 1].u)
        ++i;
    const double u0 = Edges[i].u;
    const double u1 = Edges[i + 1].u;
    const double t = (u - u0) / (u1 - u0);
    const double p1 = Edges[i].*field;
    const double p2 = Edges[i + 1].*field;
    const double p0 = i > 0 ? Edges[i - 1].*field : p1 - (p2 - p1);
    const double p3 = i + 2 < Edges.size() ? Edges[i + 2].*field : p2 + (p2 - p1);
    const double t2 = t * t;
    const double t3 = t2 * t;
    return 0.5 * (2 * p1 + (-p0 + p2) * t + (2 * p0 - 5 * p1 + 4 * p2 - p3) * t2 +
                  (-p0 + 3 * p1 - 3 * p2 + p3) * t3);
}

// The pose of one frame: the arm's angle above the horizontal and the hand's,
// which lags behind the arm through the stroke (bent up on the way down, down
// on the way up), and how far the hand is stretched out: a kestrel half folds
// its hands on the upstroke.
struct Pose {
    double arm;
    double hand;
    double reach;
};

Pose poseOf(int frame) {
    const double phase = 2.0 * std::numbers::pi * (frame - 1) / kestrelFrameCount;
    const double degree = std::numbers::pi / 180.0;
    Pose pose;
    pose.arm = (14.0 + 48.0 * std::cos(phase)) * degree;
    pose.hand = pose.arm + 22.0 * std::sin(phase) * degree;
    pose.reach = 1.0 - 0.28 * std::max(0.0, -std::sin(phase));
    return pose;
}

// Where a point of the wing lands on the canvas: u along the span (0 root,
// 1 tip), chord towards the trailing edge. side is -1 for the left wing.
class WingProjection {
public:
    WingProjection(const Pose& pose, int side) : m_pose(pose), m_side(side) {}

    QPointF at(double u, double chord) const {
        const QPointF shoulder(Canvas / 2 + m_side * ShoulderX, ShoulderY);
        // The chord leans a little outwards as the wing rises (inwards as it
        // falls), so a raised wing still shows its breadth instead of being
        // seen edge on.
        const QPointF chordStep(m_side * 0.35 * std::sin(m_pose.arm), std::cos(Tilt));
        if (u <= ArmShare)
            return shoulder + span(m_pose.arm) * (ArmLength * u / ArmShare) + chordStep * chord;
        const QPointF wrist = shoulder + span(m_pose.arm) * ArmLength;
        const double along = HandLength * m_pose.reach * (u - ArmShare) / (1.0 - ArmShare);
        return wrist + span(m_pose.hand) * along + chordStep * chord;
    }

    QPointF tip() const { return at(1.0, edgeAt(1.0, &EdgeNode::lead)); }

private:
    // The span direction at a beat angle, turned onto the screen.
    QPointF span(double angle) const {
        return {m_side * std::cos(angle), -std::sin(angle) * std::sin(Tilt)};
    }

    Pose m_pose;
    int m_side;
};

QPainterPath closedPath(const QPolygonF& points) {
    QPainterPath path;
    path.addPolygon(points);
    path.closeSubpath();
    return path;
}

// The band between two chord functions over part of the span.
template <typename Lead, typename Trail>
QPainterPath wingBand(const WingProjection& wing, double from, double to, Lead lead, Trail trail) {
    constexpr int Steps = 24;
    QPolygonF outline;
    for (int i = 0; i <= Steps; ++i) {
        const double u = from + (to - from) * i / Steps;
        outline << wing.at(u, lead(u));
    }
    for (int i = Steps; i >= 0; --i) {
        const double u = from + (to - from) * i / Steps;
        outline << wing.at(u, trail(u));
    }
    return closedPath(outline);
}

void paintWing(QPainter& p, const Pose& pose, int side) {
    const WingProjection wing(pose, side);
    const auto lead = [](double u) { return edgeAt(u, &EdgeNode::lead); };
    const auto trail = [](double u) { return edgeAt(u, &EdgeNode::trail); };
    const QPainterPath whole = wingBand(wing, 0.0, 1.0, lead, trail);

    // Light falls from above: a raised wing catches more of it.
    const int light = 100 + int(14 * std::sin(pose.hand));
    QLinearGradient fill(wing.at(0.0, 4.0), wing.tip());
    fill.setColorAt(0.0, Russet.lighter(light));
    fill.setColorAt(0.46, RussetDark.lighter(light));
    fill.setColorAt(0.58, WingTip.lighter(light + 40));
    fill.setColorAt(1.0, WingTip);
    p.setPen(Qt::NoPen);
    p.setBrush(fill);
    p.drawPath(whole);

    // The dark secondaries along the arm's trailing edge, fading into the hand.
    p.setBrush(Secondaries);
    p.drawPath(wingBand(
        wing, 0.04, 0.62, [&](double u) { return trail(u) - 4.2 * (1.0 - (u / 0.62) * 0.6); },
        trail));

    // A few dark spots on the coverts.
    p.setBrush(Spot);
    static constexpr std::array<std::pair<double, double>, 6> Spots{
        {{0.12, 3.0}, {0.2, 7.0}, {0.28, 2.4}, {0.34, 7.4}, {0.44, 3.2}, {0.5, 7.2}}};
    for (const auto& [u, chord] : Spots)
        p.drawEllipse(wing.at(u, chord), 0.85, 0.6);

    // The primaries' separations near the tip.
    QPen feather(WingTip.darker(140), 0.45);
    feather.setCapStyle(Qt::RoundCap);
    p.setPen(feather);
    for (double chord : {9.6, 11.2, 12.6}) {
        const double start = 0.64;
        const double end = std::min(0.97, start + (15.6 - chord) * 0.05);
        p.drawLine(wing.at(start, chord), wing.at(end, std::min(chord, trail(end) - 0.4)));
    }

    p.setPen(QPen(Outline, 0.5));
    p.setBrush(Qt::NoBrush);
    p.drawPath(whole);
}

void paintSky(QPainter& p) {
    QLinearGradient sky(0, 0, 0, Canvas);
    sky.setColorAt(0.0, QColor(0x6f, 0xb6, 0xe8));
    sky.setColorAt(1.0, QColor(0xd2, 0xec, 0xfb));
    p.setPen(Qt::NoPen);
    p.setBrush(sky);
    p.drawRoundedRect(QRectF(0, 0, Canvas, Canvas), 9, 9);

    // A wisp of cloud low down, for depth.
    p.setBrush(QColor(255, 255, 255, 150));
    p.drawEllipse(QPointF(20, 86), 15, 4.5);
    p.drawEllipse(QPointF(30, 83), 9, 4.5);
    p.drawEllipse(QPointF(80, 92), 13, 3.5);
}

void paintTail(QPainter& p) {
    // Fanned wide, as a hovering kestrel spreads it, each feather's end
    // slightly rounded.
    const QPointF pivot(Canvas / 2, 54);
    constexpr double Radius = 34.0;
    constexpr int Feathers = 12;
    constexpr double Spread = 36.0; // degrees either side of straight down
    const double degree = std::numbers::pi / 180.0;
    const auto direction = [&](double angle) {
        return QPointF(std::cos(angle * degree), std::sin(angle * degree));
    };

    QPainterPath fan(pivot);
    const double first = 90.0 - Spread;
    const double step = 2 * Spread / Feathers;
    fan.lineTo(pivot + direction(first) * Radius * 0.97);
    for (int i = 0; i < Feathers; ++i) {
        const double a = first + step * i;
        fan.quadTo(pivot + direction(a + step / 2) * Radius * 1.05,
                   pivot + direction(a + step) * Radius * 0.97);
    }
    fan.closeSubpath();

    // Blue-grey with a broad black band and a white tip.
    QRadialGradient fill(pivot, Radius * 1.05);
    fill.setColorAt(0.0, BlueGreyLight);
    fill.setColorAt(0.68, BlueGrey);
    fill.setColorAt(0.71, QColor(0x22, 0x22, 0x26));
    fill.setColorAt(0.86, QColor(0x22, 0x22, 0x26));
    fill.setColorAt(0.885, QColor(0xf4, 0xf2, 0xec));
    fill.setColorAt(1.0, QColor(0xf4, 0xf2, 0xec));
    p.setPen(Qt::NoPen);
    p.setBrush(fill);
    p.drawPath(fan);

    p.setPen(QPen(QColor(0x55, 0x5e, 0x6a), 0.35));
    for (int i = 1; i < Feathers; ++i) {
        const QPointF d = direction(first + step * i);
        p.drawLine(pivot + d * 9.0, pivot + d * Radius * 0.96);
    }
    p.setPen(QPen(Outline, 0.5));
    p.setBrush(Qt::NoBrush);
    p.drawPath(fan);
}

void paintBody(QPainter& p) {
    QPainterPath body(QPointF(50, 30));
    body.cubicTo(59, 30, 61.5, 39, 61, 46);
    body.cubicTo(60.5, 53, 56, 59.5, 50, 62.5);
    body.cubicTo(44, 59.5, 39.5, 53, 39, 46);
    body.cubicTo(38.5, 39, 41, 30, 50, 30);

    // Russet back, grey rump.
    QLinearGradient fill(0, 30, 0, 62.5);
    fill.setColorAt(0.0, Russet.lighter(108));
    fill.setColorAt(0.68, Russet);
    fill.setColorAt(0.86, BlueGrey);
    fill.setColorAt(1.0, BlueGrey);
    p.setPen(Qt::NoPen);
    p.setBrush(fill);
    p.drawPath(body);

    // Roundness: a soft light from the upper left.
    QRadialGradient shine(QPointF(46, 40), 14);
    shine.setColorAt(0.0, QColor(255, 240, 220, 70));
    shine.setColorAt(1.0, QColor(255, 240, 220, 0));
    p.setBrush(shine);
    p.drawPath(body);

    // The black arrowhead spots of the back.
    p.setBrush(Spot);
    static constexpr std::array<QPointF, 9> Spots{{{45.5, 37},
                                                   {54, 36.5},
                                                   {49.5, 41.5},
                                                   {57, 43.5},
                                                   {43, 44.5},
                                                   {52.5, 47.5},
                                                   {46.5, 50},
                                                   {56, 51.5},
                                                   {50.5, 54}}};
    for (const QPointF& at : Spots) {
        QPainterPath arrow(at + QPointF(-1.1, -0.5));
        arrow.quadTo(at + QPointF(0, 0.2), at + QPointF(1.1, -0.5));
        arrow.quadTo(at + QPointF(0, 1.4), at + QPointF(-1.1, -0.5));
        p.drawPath(arrow);
    }

    p.setPen(QPen(Outline, 0.5));
    p.setBrush(Qt::NoBrush);
    p.drawPath(body);
}

void paintHead(QPainter& p) {
    // Turned to the left and looking down, as a hovering kestrel watches the
    // ground: the grey crown, a pale cheek and throat, the black moustache,
    // the hooked beak with its yellow cere.
    const QPointF centre(50, 24.5);
    QRadialGradient fill(QPointF(52.5, 21), 11);
    fill.setColorAt(0.0, BlueGreyLight);
    fill.setColorAt(1.0, BlueGrey.darker(118));
    p.setPen(QPen(Outline, 0.5));
    p.setBrush(fill);
    p.drawEllipse(centre, 8.6, 8.0);

    p.setPen(Qt::NoPen);
    p.setBrush(QColor(0xe9, 0xe2, 0xd4, 200));
    p.drawEllipse(QPointF(48.2, 28.2), 2.4, 2.0);

    // The moustache: a dark teardrop below the eye.
    p.setBrush(QColor(0x26, 0x24, 0x28));
    QPainterPath stripe(QPointF(44.6, 23.6));
    stripe.cubicTo(QPointF(46.6, 23.4), QPointF(47.2, 27.5), QPointF(46.4, 30.6));
    stripe.cubicTo(QPointF(45.2, 29.2), QPointF(44.2, 26.5), QPointF(44.6, 23.6));
    p.drawPath(stripe);

    // The beak: a dark hook below a yellow cere.
    p.setPen(QPen(QColor(0x2c, 0x2c, 0x34), 0.35));
    p.setBrush(QColor(0x4e, 0x55, 0x63));
    QPainterPath beak(QPointF(42.9, 21.6));
    beak.quadTo(QPointF(39.0, 21.6), QPointF(38.6, 25.8));
    beak.quadTo(QPointF(40.4, 24.4), QPointF(42.9, 25.2));
    beak.closeSubpath();
    p.drawPath(beak);
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(0xf2, 0xc2, 0x2e));
    p.drawEllipse(QPointF(42.8, 22.6), 1.3, 1.2);

    // The eye, with its yellow ring and a glint.
    p.setPen(QPen(QColor(0xf2, 0xc2, 0x2e), 0.7));
    p.setBrush(QColor(0x16, 0x14, 0x18));
    p.drawEllipse(QPointF(45.6, 21.6), 1.9, 1.9);
    p.setPen(Qt::NoPen);
    p.setBrush(Qt::white);
    p.drawEllipse(QPointF(45.0, 21.0), 0.55, 0.55);
}

} // namespace

void paintKestrelFrame(QPainter& p, int n, const QRectF& square) {
    const int frame = ((n - 1) % kestrelFrameCount + kestrelFrameCount) % kestrelFrameCount + 1;
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    p.translate(square.topLeft());
    p.scale(square.width() / Canvas, square.height() / Canvas);

    paintSky(p);
    // Tail first, then the wings (their roots lie under the back), the body
    // and the head on top. The body is the same in every frame.
    paintTail(p);
    const Pose pose = poseOf(frame);
    paintWing(p, pose, -1);
    paintWing(p, pose, +1);
    paintBody(p);
    paintHead(p);
    p.restore();
}

QPixmap kestrelFrame(int n, int size, qreal devicePixelRatio) {
    QPixmap pixmap(QSize(size, size) * devicePixelRatio);
    pixmap.setDevicePixelRatio(devicePixelRatio);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    paintKestrelFrame(p, n, QRectF(0, 0, size, size));
    return pixmap;
}

} // namespace kestrel::shell
