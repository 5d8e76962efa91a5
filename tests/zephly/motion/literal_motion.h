// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Slow, literal reference implementations of the motion rules. They share no code with the kit:
/// every number is a Single (see support/single.h).

#include <tests/support/single.h>
#include <zephly/motion/quaternion.h>
#include <zephly/motion/vector3.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <locale>
#include <sstream>
#include <string>
#include <vector>

namespace literal {

struct Vector {
  Single x, y, z;
};

/// Scalar last.
struct Rotation {
  Single x, y, z, w;
};

inline Rotation rotation(const Quaternion& q) { return {q.x, q.y, q.z, q.w}; }

inline Rotation product(const Rotation& p, const Rotation& r) {
  return {r.x * p.w + r.w * p.x + r.z * p.y - r.y * p.z,
          r.y * p.w + r.w * p.y + r.x * p.z - r.z * p.x,
          r.y * p.x + (r.z * p.w + r.w * p.z) - r.x * p.y,
          r.w * p.w - r.x * p.x - r.y * p.y - r.z * p.z};
}

/// q (0, 0, 1, 0) q*.
inline Rotation rotatedUp(const Rotation& q) {
  return product(product(q, {0.0F, 0.0F, 1.0F, 0.0F}), {-q.x, -q.y, -q.z, q.w});
}

inline Vector withoutGravity(const Rotation& q, const Vector& a) {
  const Single x = q.x * q.z - q.w * q.y;
  const Single y = q.w * q.x + q.y * q.z;
  const Single z = q.z * q.z + ((q.w * q.w - q.x * q.x) - q.y * q.y);
  return {a.x - (x + x), a.y - (y + y), a.z - z};
}

inline Single inverseSquareRoot(Single x) {
  const auto bits = std::bit_cast<std::uint32_t>(x.value());
  const Single y = std::bit_cast<float>(0x5F1F1412U - bits / 2);
  const Single minusFactor = std::bit_cast<float>(0xBF36D312U);
  const Single constant = std::bit_cast<float>(0x3FD851FFU);
  return y * (y * (x * minusFactor * y) + constant);
}

/// The orientation filter, with the orientation scalar first in q.
class Fusion {
 public:
  Single q[4] = {1.0F, 0.0F, 0.0F, 0.0F};

  void update(Vector g, Vector a, Vector m) {
    if (zero(m)) return update(g, a);
    startFrom(g);
    if (!zero(a)) {
      normalize(a);
      normalize(m);
      descendBoth(a, m);
    }
    finish();
  }

  void update(Vector g, Vector a) {
    startFrom(g);
    if (!zero(a)) {
      normalize(a);
      descendGravity(a);
    }
    finish();
  }

 private:
  static bool zero(const Vector& v) {
    return v.x.value() == 0 && v.y.value() == 0 && v.z.value() == 0;
  }

  static void normalize(Vector& v) {
    const Single factor = inverseSquareRoot(v.x * v.x + v.y * v.y + v.z * v.z);
    v = {v.x * factor, v.y * factor, v.z * factor};
  }

  void startFrom(const Vector& g) {
    const Single half = 0.5F;
    rate[0] = half * (-q[1] * g.x - q[2] * g.y - q[3] * g.z);
    rate[1] = half * (q[0] * g.x + q[2] * g.z - q[3] * g.y);
    rate[2] = half * (q[0] * g.y - q[1] * g.z + q[3] * g.x);
    rate[3] = half * (q[0] * g.z + q[1] * g.y - q[2] * g.x);
  }

  void descendGravity(const Vector& a) {
    const Single two = 2.0F;
    const Single four = 4.0F;
    const Single eight = 8.0F;
    const Single ww = q[0] * q[0];
    const Single xx = q[1] * q[1];
    const Single yy = q[2] * q[2];
    const Single zz = q[3] * q[3];
    const Single w2 = two * q[0];
    const Single x2 = two * q[1];
    const Single y2 = two * q[2];
    const Single z2 = two * q[3];
    const Single w4 = four * q[0];
    const Single x4 = four * q[1];
    const Single y4 = four * q[2];
    const Single x8 = eight * q[1];
    const Single y8 = eight * q[2];
    descend(w4 * yy + y2 * a.x + w4 * xx - x2 * a.y,
            x4 * zz - z2 * a.x + four * ww * q[1] - w2 * a.y - x4 + x8 * xx + x8 * yy + x4 * a.z,
            four * ww * q[2] + w2 * a.x + y4 * zz - z2 * a.y - y4 + y8 * xx + y8 * yy + y4 * a.z,
            four * xx * q[3] - x2 * a.x + four * yy * q[3] - y2 * a.y);
  }

  void descendBoth(const Vector& a, const Vector& m) {
    const Single one = 1.0F;
    const Single two = 2.0F;
    const Single four = 4.0F;
    const Single half = 0.5F;
    const Single w = q[0];
    const Single x = q[1];
    const Single y = q[2];
    const Single z = q[3];
    const Single ww = w * w, wx = w * x, wy = w * y, wz = w * z;
    const Single xx = x * x, xy = x * y, xz = x * z;
    const Single yy = y * y, yz = y * z, zz = z * z;
    const Single w2mx = two * w * m.x, w2my = two * w * m.y, w2mz = two * w * m.z;
    const Single x2mx = two * x * m.x;
    const Single w2 = two * w, x2 = two * x, y2 = two * y, z2 = two * z;

    const Single hx = m.x * ww - w2my * z + w2mz * y + m.x * xx + x2 * m.y * y + x2 * m.z * z -
                      m.x * yy - m.x * zz;
    const Single hy =
        w2mx * z + m.y * ww - w2mz * x + x2mx * y - m.y * xx + m.y * yy + y2 * m.z * z - m.y * zz;
    const Single bx = squareRoot(hx * hx + hy * hy);
    const Single bz =
        -w2mx * y + w2my * x + m.z * ww + x2mx * z - m.z * xx + y2 * m.y * z - m.z * yy + m.z * zz;
    const Single bx2 = two * bx, bz2 = two * bz;

    const Single ax = two * xz - w2 * y - a.x;
    const Single ay = two * wx + y2 * z - a.y;
    const Single az = one - two * xx - two * yy - a.z;
    const Single ex = bx * (half - yy - zz) + bz * (xz - wy) - m.x;
    const Single ey = bx * (xy - wz) + bz * (wx + yz) - m.y;
    const Single ez = bx * (wy + xz) + bz * (half - xx - yy) - m.z;

    descend(-y2 * ax + x2 * ay - bz * y * ex + (-bx * z + bz * x) * ey + bx * y * ez,
            z2 * ax + w2 * ay - four * x * az + bz * z * ex + (bx * y + bz * w) * ey +
                (bx * z - bz2 * x) * ez,
            -w2 * ax + z2 * ay - four * y * az + (-bx2 * y - bz * w) * ex + (bx * x + bz * z) * ey +
                (bx * w - bz2 * y) * ez,
            x2 * ax + y2 * ay + (-bx2 * z + bz * x) * ex + (-bx * w + bz * y) * ey + bx * x * ez);
  }

  void descend(Single s0, Single s1, Single s2, Single s3) {
    const Single gain = std::bit_cast<float>(0x3E4CCCCDU);
    const Single factor = inverseSquareRoot(s0 * s0 + s1 * s1 + s2 * s2 + s3 * s3);
    const Single gradient[] = {s0, s1, s2, s3};
    for (int i = 0; i < 4; ++i) rate[i] = rate[i] - gain * (gradient[i] * factor);
  }

  void finish() {
    const Single period = std::bit_cast<float>(0x3D088889U);
    for (int i = 0; i < 4; ++i) q[i] = q[i] + rate[i] * period;
    const Single factor = inverseSquareRoot(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
    for (Single& component : q) component = component * factor;
  }

  Single rate[4];
};

/// The two-pole filter.
class TwoPole {
 public:
  TwoPole(float frequency, int sampleRate, bool highPass, float resonance) {
    const double pi = 3.141592653589793;
    const Single t = static_cast<float>(
        std::tan(static_cast<double>(frequency) * pi / static_cast<double>(sampleRate)));
    const Single one = 1.0F;
    const Single r = resonance;
    const Single c = highPass ? t : one / t;
    in0 = one / (c * c + (c * r + one));
    in1 = highPass ? Single(-2.0F) * in0 : in0 + in0;
    in2 = in0;
    out1 = highPass ? in0 * ((c * c - one) + (c * c - one)) : in0 * ((one - c * c) + (one - c * c));
    out2 = in0 * (c * c + (one - c * r));
  }

  Single process(Single x) {
    const Single y = in0 * x + in1 * x1 + in2 * x2 - out1 * y1 - out2 * y2;
    x2 = x1;
    x1 = x;
    y2 = y1;
    y1 = y;
    return y;
  }

  /// The coefficient of the newest input.
  float first() const { return in0.value(); }

 private:
  Single in0, in1, in2, out1, out2;
  Single x1, x2, y1, y2;
};

/// The exercise detector's response to one sample.
struct Detection {
  int band = 0;
  int heading = 0;
  std::string line;    // the diagnostic line, with its end
  std::string events;  // P push-up, J jump, S sit-up, in the order of their callbacks
};

class Detector {
 public:
  Detection process(const Rotation& q, const Vector& a, Single rate) {
    Detection result;
    result.band = band(q);
    result.heading = heading(result.band == 1 ? a.x : a.z, rate, result.line);
    if (result.band == 2 && result.heading == 1 && last == 0) result.events += 'P';
    if (result.band == 1 && result.heading == 0 && last == 1) result.events += 'J';
    if (result.band == 1 && current == 0 && previous == 1) result.events += 'S';
    if (result.heading != 2) last = result.heading;
    if (current != result.band) {
      previous = current;
      current = result.band;
    }
    return result;
  }

  static int band(const Rotation& q) {
    const float up = rotatedUp(q).z.value();
    if (std::isnan(up)) return 1;
    if (up >= 0.5F) return 2;
    if (up > -0.5F) return 1;
    return 0;
  }

  int heading(Single a, Single rate, std::string& line) {
    velocity = a / rate + velocity;
    const Single highPassed = velocityHighPass.process(velocity);
    position = position + highPassed / rate;
    displacement = (position - positionLowPass.process(position)).value();

    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << highPassed.value() << ", " << displacement << '\n';
    line = text.str();

    const double wide = displacement;
    if (wide < -0.01) return 0;
    if (wide > 0.01) return 1;
    return 2;
  }

  /// The vertical acceleration after which the displacement is about `target`.
  float accelerationFor(float target, Single rate) const {
    const double atRest = displacementAfter(0.0F, rate);
    const double moved = displacementAfter(1024.0F, rate);
    return static_cast<float>((target - atRest) * 1024.0 / (moved - atRest));
  }

  float displacementAfter(float acceleration, Single rate) const {
    Detector copy = *this;
    std::string ignored;
    copy.heading(acceleration, rate, ignored);
    return copy.displacement;
  }

 private:
  Single velocity, position;
  TwoPole velocityHighPass{1.0F, 500, true, 2.0F};
  TwoPole positionLowPass{1.0F, 60, false, 2.0F};
  float displacement = 0.0F;
  int last = 2;
  int current = 2;
  int previous = 2;
};

}  // namespace literal
