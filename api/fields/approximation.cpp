#include "api/detail/approximation.h"

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>

namespace tundrel {

namespace {

// Singular values of the ports' spread below this share of the largest mark
// an axis the ports do not spread along.
constexpr double kFlatAxis = 1e-9;
// A monomial is kept when the part of its port values that the terms before
// it do not explain is longer than this share of the constant's.
constexpr double kDependentTerm = 1e-9;
// The dense system of more distinct ports would take more than 128 MB and
// minutes to solve.
constexpr std::size_t kMostPorts = 4000;

double power(double v, int e) {
    double r = 1.0;
    for (int k = 0; k < e; ++k) r *= v;
    return r;
}

double monomial(const double u[3], const std::array<int, 3>& e) {
    return power(u[0], e[0]) * power(u[1], e[1]) * power(u[2], e[2]);
}

// Every exponent triple of total degree 0..order over the first `dims` axes,
// by degree, then with the first axis' exponent falling.
std::vector<std::array<int, 3>> monomials(int order, int dims) {
    std::vector<std::array<int, 3>> out;
    for (int degree = 0; degree <= order; ++degree)
        for (int a = degree; a >= 0; --a)
            for (int b = degree - a; b >= 0; --b) {
                const int c = degree - a - b;
                if ((b > 0 && dims < 2) || (c > 0 && dims < 3) || (a > 0 && dims < 1)) continue;
                out.push_back({a, b, c});
            }
    return out;
}

}  // namespace

ApproximationStatus PortApproximation::build(const std::vector<z::zVec<double>>& ports,
                                             const std::vector<double>& values, int order) {
    *this = PortApproximation();
    const std::size_t n = ports.size();
    if (values.size() != n || order < 0 || order > 2) return ApproximationStatus::SizesDiffer;
    if (n == 0) return ApproximationStatus::Unsolvable;
    for (std::size_t i = 0; i < n; ++i)
        if (!std::isfinite(ports[i].x) || !std::isfinite(ports[i].y) || !std::isfinite(ports[i].z) ||
            !std::isfinite(values[i]))
            return ApproximationStatus::Unsolvable;

    // Distinct ports: a repeat of a place with the same value counts once,
    // with another value the system has no solution.
    std::vector<std::size_t> byPlace(n);
    std::iota(byPlace.begin(), byPlace.end(), std::size_t{0});
    auto place = [&](std::size_t i) { return std::array<double, 3>{ports[i].x, ports[i].y, ports[i].z}; };
    std::stable_sort(byPlace.begin(), byPlace.end(), [&](std::size_t a, std::size_t b) { return place(a) < place(b); });
    std::vector<char> repeat(n, 0);
    for (std::size_t k = 1; k < n; ++k) {
        const std::size_t a = byPlace[k - 1], b = byPlace[k];
        if (place(a) != place(b)) continue;
        if (values[a] != values[b]) return ApproximationStatus::Unsolvable;
        repeat[std::max(a, b)] = 1;  // the first of the place in the given order stays
    }
    std::vector<std::size_t> distinct;
    for (std::size_t i = 0; i < n; ++i)
        if (repeat[i] == 0) distinct.push_back(i);
    if (distinct.size() > kMostPorts) return ApproximationStatus::Unsolvable;
    const auto m = static_cast<Eigen::Index>(distinct.size());

    // Centre and scale: the centroid, and the largest distance from it.
    PortApproximation a;
    for (std::size_t i : distinct) {
        a.centre_[0] += ports[i].x;
        a.centre_[1] += ports[i].y;
        a.centre_[2] += ports[i].z;
    }
    for (double& c : a.centre_) c /= static_cast<double>(m);
    double radius = 0.0;
    Eigen::MatrixXd q(m, 3);
    for (Eigen::Index k = 0; k < m; ++k) {
        const auto& p = ports[distinct[static_cast<std::size_t>(k)]];
        q(k, 0) = p.x - a.centre_[0];
        q(k, 1) = p.y - a.centre_[1];
        q(k, 2) = p.z - a.centre_[2];
        radius = std::max(radius, q.row(k).norm());
    }
    a.inverseScale_ = radius > 0.0 ? 1.0 / radius : 1.0;
    q *= a.inverseScale_;

    // Principal axes of the ports and the axes they spread along.
    if (m > 1) {
        Eigen::JacobiSVD<Eigen::MatrixXd> svd(q, Eigen::ComputeFullV);
        const Eigen::VectorXd& s = svd.singularValues();
        for (int k = 0; k < 3; ++k) {
            for (int c = 0; c < 3; ++c) a.axes_[k][c] = svd.matrixV()(c, k);
            if (k < s.size() && s(k) > kFlatAxis * s(0)) a.dimension_ = k + 1;
        }
    }

    // The polynomial part: too few ports for the terms is a failure; terms
    // that the ports cannot tell from earlier ones are dropped.
    const std::vector<std::array<int, 3>> candidates = monomials(order, a.dimension_);
    if (static_cast<std::size_t>(m) < candidates.size()) return ApproximationStatus::Unsolvable;
    using Axes = Eigen::Matrix<double, 3, 3, Eigen::RowMajor>;
    const Eigen::MatrixXd local = q * Eigen::Map<const Axes>(&a.axes_[0][0]).transpose();
    std::vector<Eigen::VectorXd> basis;
    Eigen::MatrixXd P(m, static_cast<Eigen::Index>(candidates.size()));
    Eigen::Index kept = 0;
    const double tolerance = kDependentTerm * std::sqrt(static_cast<double>(m));
    for (const auto& e : candidates) {
        Eigen::VectorXd column(m);
        for (Eigen::Index k = 0; k < m; ++k) {
            const double u[3] = {local(k, 0), local(k, 1), local(k, 2)};
            column(k) = monomial(u, e);
        }
        Eigen::VectorXd rest = column;
        for (int pass = 0; pass < 2; ++pass)
            for (const auto& b : basis) rest -= b.dot(rest) * b;
        const double length = rest.norm();
        if (!(length > tolerance)) continue;
        basis.push_back(rest / length);
        P.col(kept++) = column;
        a.terms_.push_back(e);
    }

    // The saddle-point system of kernel weights and polynomial coefficients.
    const Eigen::Index size = m + kept;
    Eigen::MatrixXd K = Eigen::MatrixXd::Zero(size, size);
    for (Eigen::Index i = 0; i < m; ++i)
        for (Eigen::Index l = i + 1; l < m; ++l) K(i, l) = K(l, i) = (q.row(i) - q.row(l)).norm();
    K.topRightCorner(m, kept) = P.leftCols(kept);
    K.bottomLeftCorner(kept, m) = P.leftCols(kept).transpose();
    Eigen::VectorXd rhs = Eigen::VectorXd::Zero(size);
    for (Eigen::Index k = 0; k < m; ++k) rhs(k) = values[distinct[static_cast<std::size_t>(k)]];

    const Eigen::FullPivLU<Eigen::MatrixXd> lu(K);
    if (!lu.isInvertible()) return ApproximationStatus::Unsolvable;
    const Eigen::VectorXd solution = lu.solve(rhs);
    if (!solution.allFinite()) return ApproximationStatus::Unsolvable;

    a.weights_.assign(n, 0.0);
    for (Eigen::Index k = 0; k < m; ++k) {
        a.qx_.push_back(q(k, 0));
        a.qy_.push_back(q(k, 1));
        a.qz_.push_back(q(k, 2));
        a.w_.push_back(solution(k));
        a.weights_[distinct[static_cast<std::size_t>(k)]] = solution(k);
    }
    for (Eigen::Index j = 0; j < kept; ++j) a.coefficients_.push_back(solution(m + j));
    if (a.weights_.size() != n || a.coefficients_.size() != a.terms_.size()) return ApproximationStatus::SizesDiffer;
    *this = std::move(a);
    return ApproximationStatus::Solved;
}

double PortApproximation::polynomial(const double q[3]) const {
    double u[3] = {0, 0, 0};
    for (int k = 0; k < dimension_; ++k) u[k] = axes_[k][0] * q[0] + axes_[k][1] * q[1] + axes_[k][2] * q[2];
    double s = 0.0;
    for (std::size_t j = 0; j < terms_.size(); ++j) s += coefficients_[j] * monomial(u, terms_[j]);
    return s;
}

double PortApproximation::polynomialPart(const z::zVec<double>& p) const {
    const double q[3] = {(p.x - centre_[0]) * inverseScale_, (p.y - centre_[1]) * inverseScale_,
                         (p.z - centre_[2]) * inverseScale_};
    return polynomial(q);
}

double PortApproximation::operator()(const z::zVec<double>& p) const {
    double r = 0.0;
    evaluate(&p.x, &p.y, &p.z, 1, &r);
    return r;
}

void PortApproximation::evaluate(const double* x, const double* y, const double* z, std::size_t n,
                                 double* out) const {
    const auto m = static_cast<Eigen::Index>(w_.size());
    const Eigen::Map<const Eigen::ArrayXd> X(qx_.data(), m), Y(qy_.data(), m), Z(qz_.data(), m), W(w_.data(), m);
    const auto count = static_cast<std::int64_t>(n);
#pragma omp parallel for schedule(static) if (count > 256)
    for (std::int64_t k = 0; k < count; ++k) {
        const double q[3] = {(x[k] - centre_[0]) * inverseScale_, (y[k] - centre_[1]) * inverseScale_,
                             (z[k] - centre_[2]) * inverseScale_};
        const double kernel = (((X - q[0]).square() + (Y - q[1]).square() + (Z - q[2]).square()).sqrt() * W).sum();
        out[k] = kernel + polynomial(q);
    }
}

}  // namespace tundrel
