// Three-component vectors and the flow conditions of a measurement.
#pragma once

#include <cmath>

namespace z {

template <class T>
class zVec {
public:
    T x{}, y{}, z{};

    constexpr zVec() = default;
    constexpr zVec(T x_, T y_, T z_) : x(x_), y(y_), z(z_) {}
    zVec(const zVec&) = default;
    zVec& operator=(const zVec&) = default;
    virtual ~zVec() = default;

    zVec operator+(const zVec& b) const { return {x + b.x, y + b.y, z + b.z}; }
    zVec operator-(const zVec& b) const { return {x - b.x, y - b.y, z - b.z}; }
    zVec operator-() const { return {-x, -y, -z}; }
    zVec& operator+=(const zVec& b) {
        x += b.x;
        y += b.y;
        z += b.z;
        return *this;
    }
    zVec operator*(T s) const { return {x * s, y * s, z * s}; }
    // Division multiplies by the reciprocal, formed once; s = 0 is not checked.
    zVec operator/(T s) const {
        const T r = T(1) / s;
        return {x * r, y * r, z * r};
    }
    bool operator==(const zVec& b) const { return x == b.x && y == b.y && z == b.z; }

    T dot(const zVec& b) const { return x * b.x + y * b.y + z * b.z; }
    zVec cross(const zVec& b) const { return {y * b.z - z * b.y, z * b.x - x * b.z, x * b.y - y * b.x}; }
    T length() const { return std::sqrt(x * x + y * y + z * z); }
};

template <class T>
zVec<T> operator*(T s, const zVec<T>& a) {
    return a * s;
}
template <class T>
T dot(const zVec<T>& a, const zVec<T>& b) {
    return a.dot(b);
}
template <class T>
zVec<T> cross(const zVec<T>& a, const zVec<T>& b) {
    return a.cross(b);
}

// Mach number, angle of attack and sideslip angle.
struct ambientFlow {
    double Mach = 0.0;
    double alpha = 0.0;
    double beta = 0.0;
};

}  // namespace z
