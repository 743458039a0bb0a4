// The device math functions that kernels use, mapped to the host's libm.
#pragma once
#pragma GCC visibility push(default)

#include <cmath>

namespace sycl {

inline float sqrt(float x) {
    return std::sqrt(x);
}
inline double sqrt(double x) {
    return std::sqrt(x);
}
inline float rsqrt(float x) {
    return 1.0f / std::sqrt(x);
}
inline double rsqrt(double x) {
    return 1.0 / std::sqrt(x);
}
inline float fabs(float x) {
    return std::fabs(x);
}
inline double fabs(double x) {
    return std::fabs(x);
}
inline float fmin(float x, float y) {
    return std::fmin(x, y);
}
inline double fmin(double x, double y) {
    return std::fmin(x, y);
}
inline float fmax(float x, float y) {
    return std::fmax(x, y);
}
inline double fmax(double x, double y) {
    return std::fmax(x, y);
}
inline bool isnan(float x) {
    return std::isnan(x);
}
inline bool isnan(double x) {
    return std::isnan(x);
}
inline bool isinf(float x) {
    return std::isinf(x);
}
inline bool isinf(double x) {
    return std::isinf(x);
}

}  // namespace sycl

#pragma GCC visibility pop
