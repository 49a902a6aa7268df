// The approximation that spreads pressure-port values over the surface.
//
// Given n ports p_i with values f_i and an order k (0, 1 or 2), the field is
// the polyharmonic interpolant with a polynomial part
//
//     s(x) = sum_i w_i |x - p_i|  +  sum_j c_j q_j(x),
//
// |.| the Euclidean distance in space. The kernel r is the biharmonic
// spline of three dimensions (the fundamental solution of the squared
// Laplacian); it is conditionally positive definite of order 1, so it pairs
// with any polynomial part that contains the constants, and the interpolant
// with the smallest bending energy is the one below. The weights and
// coefficients solve
//
//     [ A  P ] [w]   [f]        A_il = |p_i - p_l|,
//     [ P' 0 ] [c] = [0],       P_ij = q_j(p_i),
//
// so s(p_i) = f_i at every port, and because the conditions P'w = 0 leave no
// room for a kernel part when the values come from a polynomial of the
// order, such a field is reproduced exactly (w = 0), everywhere.
//
// The polynomial part: every monomial of total degree at most k in the local
// coordinates of the ports (their principal axes, about their centroid,
// scaled to the ports' radius). Terms the ports cannot determine are
// dropped, not reported:
//   - axes along which the ports do not spread (all ports on a plane, as on
//     a flat plate or a wing section, or on a line) carry no terms, so the
//     field is extended unchanged across them;
//   - of the remaining monomials, in order of degree (1, u, v, w, u^2, uv,
//     ...), a term is kept only when its values at the ports are not a
//     combination of the terms kept before it (ports on a sphere or a
//     cylinder determine one quadratic term fewer).
// Ports at exactly the same place with the same value count once (the
// repeats get weight 0).
//
// Failures: value and port counts that differ, or an order outside 0..2,
// give SizesDiffer ("Error 1" to the user); fewer distinct ports than the
// polynomial terms left after the axes were dropped, ports at one place
// with different values, a system that is numerically singular, or more
// than 4000 distinct ports (the dense system would take more than 128 MB
// and minutes) give Unsolvable ("Error 2"). Memory is O(n^2) for the dense
// system of the ports only; evaluation needs nothing per node beyond the
// output.
#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "api/export.h"
#include "api/zvec.h"

namespace tundrel {

enum class ApproximationStatus { Solved, SizesDiffer, Unsolvable };

class PortApproximation {
public:
    // Fits the ports; on a failure the approximation is left empty.
    ApproximationStatus build(const std::vector<z::zVec<double>>& ports, const std::vector<double>& values, int order);

    bool solved() const noexcept { return !weights_.empty(); }
    // The value at one point.
    double operator()(const z::zVec<double>& p) const;
    // The values at n points given as coordinate arrays, into out[0 .. n).
    // Parallel over the points.
    void evaluate(const double* x, const double* y, const double* z, std::size_t n, double* out) const;

    // The polynomial part alone at one point.
    double polynomialPart(const z::zVec<double>& p) const;
    // One weight per port, in the order given (0 for a repeated port), and
    // the length in which the kernel measures distances: the value at x is
    // sum_i weights()[i] * |x - p_i| / lengthUnit() + polynomialPart(x).
    const std::vector<double>& weights() const noexcept { return weights_; }
    double lengthUnit() const noexcept { return 1.0 / inverseScale_; }
    // The polynomial terms kept, each as exponents of the local axes.
    const std::vector<std::array<int, 3>>& terms() const noexcept { return terms_; }
    // How many axes the ports spread along (0 to 3).
    int dimension() const noexcept { return dimension_; }

private:
    double polynomial(const double q[3]) const;

    double centre_[3] = {0, 0, 0};
    double inverseScale_ = 1.0;
    double axes_[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};  // rows: local axes
    int dimension_ = 0;
    std::vector<std::array<int, 3>> terms_;
    std::vector<double> coefficients_;
    // Distinct ports in scaled coordinates, with their weights.
    std::vector<double> qx_, qy_, qz_, w_;
    std::vector<double> weights_;
};

}  // namespace tundrel
