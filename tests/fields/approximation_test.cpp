// The port approximation: interpolation at the ports, exact polynomials of
// its order on every arrangement of ports with the terms it drops, its
// failures, and agreement with a plainly assembled interpolant.
#include <gtest/gtest.h>

#include <Eigen/Dense>
#include <cmath>
#include <functional>
#include <random>

#include "api/detail/approximation.h"

using tundrel::ApproximationStatus;
using tundrel::PortApproximation;
using Vec = z::zVec<double>;

namespace {

// An arrangement of ports from three parameters in [0, 1).
struct Layout {
    const char* name;
    std::function<Vec(double, double, double)> at;
    int dimension;
    int terms[3];  // kept at orders 0, 1, 2
};

const Layout kLayouts[] = {
    {"cloud", [](double s, double t, double u) { return Vec(5 * s - 2, 3 * t + 1, 2 * u - 1); }, 3, {1, 4, 10}},
    {"tiltedPlane", [](double s, double t, double) { return Vec(3 * s, 2 * t, 3 * s + 4 * t - 1); }, 2, {1, 3, 6}},
    {"sphere",  // x^2 + y^2 + z^2 ties one quadratic term to the others
     [](double s, double t, double) {
         const double th = std::acos(1 - 2 * t), ph = 6.283185307179586 * s;
         return Vec(1 + 2 * std::sin(th) * std::cos(ph), 1 + 2 * std::sin(th) * std::sin(ph), 1 + 2 * std::cos(th));
     },
     3, {1, 4, 9}},
};

std::vector<Vec> sample(const Layout& l, int n, unsigned seed) {
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    std::vector<Vec> p;
    for (int k = 0; k < n; ++k) {
        const double a = u(gen), b = u(gen);  // in this order
        p.push_back(l.at(a, b, u(gen)));
    }
    return p;
}

// A polynomial of each order in x, y, z.
double field(int order, const Vec& p) {
    const double linear = 1.5 - 0.7 * p.x + 2.0 * p.y + 0.3 * p.z;
    if (order == 0) return -4.25;
    if (order == 1) return linear;
    return linear + 0.4 * p.x * p.x - 0.9 * p.x * p.z + 0.25 * p.y * p.y + 0.6 * p.y * p.z - 0.35 * p.z * p.z;
}

}  // namespace

// Every layout at every order: exact on a polynomial of that order away from
// the ports, with the terms the layout leaves determined, and interpolating
// rough values at the ports.
TEST(Approximation, InterpolatesAndReproducesPolynomialsOfItsOrderOnEveryLayout) {
    for (const Layout& l : kLayouts)
        for (int order : {0, 1, 2}) {
            SCOPED_TRACE(testing::Message() << l.name << " order " << order);
            const std::vector<Vec> ports = sample(l, 40, 7), elsewhere = sample(l, 300, 99);
            std::vector<double> exact, rough, x, y, z, got(elsewhere.size());
            for (std::size_t k = 0; k < ports.size(); ++k)
                exact.push_back(field(order, ports[k])), rough.push_back(std::sin(3.0 * k) + 0.1 * ports[k].x);
            PortApproximation a;
            ASSERT_EQ(a.build(ports, exact, order), ApproximationStatus::Solved);
            EXPECT_EQ(a.dimension(), l.dimension);
            EXPECT_EQ(static_cast<int>(a.terms().size()), l.terms[order]);
            for (const Vec& p : elsewhere) x.push_back(p.x), y.push_back(p.y), z.push_back(p.z);
            a.evaluate(x.data(), y.data(), z.data(), elsewhere.size(), got.data());
            for (std::size_t k = 0; k < elsewhere.size(); ++k) ASSERT_NEAR(got[k], field(order, elsewhere[k]), 1e-9) << k;
            ASSERT_EQ(a.build(ports, rough, order), ApproximationStatus::Solved);
            for (std::size_t k = 0; k < ports.size(); ++k) EXPECT_NEAR(a(ports[k]), rough[k], 1e-9) << "port " << k;
            // The interpolant is unique: one assembled in the raw coordinates
            // with every monomial gives the same values.
            if (&l != &kLayouts[0]) continue;
            auto mono = [order](const Vec& p) {
                std::vector<double> m{1.0};
                if (order >= 1) m.insert(m.end(), {p.x, p.y, p.z});
                if (order >= 2) m.insert(m.end(), {p.x * p.x, p.x * p.y, p.x * p.z, p.y * p.y, p.y * p.z, p.z * p.z});
                return m;
            };
            const auto n = static_cast<Eigen::Index>(ports.size()), t = static_cast<Eigen::Index>(mono(ports[0]).size());
            Eigen::MatrixXd K = Eigen::MatrixXd::Zero(n + t, n + t);
            Eigen::VectorXd rhs = Eigen::VectorXd::Zero(n + t);
            for (Eigen::Index i = 0; i < n; ++i) {
                for (Eigen::Index j = 0; j < n; ++j) K(i, j) = (ports[i] - ports[j]).length();
                for (Eigen::Index j = 0; j < t; ++j) K(i, n + j) = K(n + j, i) = mono(ports[i])[j];
                rhs(i) = rough[static_cast<std::size_t>(i)];
            }
            const Eigen::VectorXd sol = K.fullPivLu().solve(rhs);
            for (std::size_t k = 0; k < 50; ++k) {
                double expected = 0.0;
                for (Eigen::Index i = 0; i < n; ++i) expected += sol(i) * (elsewhere[k] - ports[i]).length();
                for (Eigen::Index j = 0; j < t; ++j) expected += sol(n + j) * mono(elsewhere[k])[j];
                EXPECT_NEAR(a(elsewhere[k]), expected, 1e-8 * (1.0 + std::abs(expected))) << k;
            }
        }
}

TEST(Approximation, FailuresAndTheSmallestCases) {
    const std::vector<Vec> five = sample(kLayouts[0], 5, 1), plate4 = sample(kLayouts[1], 4, 1);
    struct Case { const char* name; std::vector<Vec> ports; std::vector<double> values; int order; ApproximationStatus status; };
    for (const Case& c : {
             Case{"valuesShort", five, {1, 2, 3, 4}, 1, ApproximationStatus::SizesDiffer},
             Case{"orderThree", five, {1, 2, 3, 4, 5}, 3, ApproximationStatus::SizesDiffer},
             Case{"noPorts", {}, {}, 0, ApproximationStatus::Unsolvable},
             Case{"onePlaceTwoValues", {five[0], five[1], five[0]}, {1, 2, 3}, 0, ApproximationStatus::Unsolvable},
             Case{"fiveForTenTerms", five, {1, 2, 3, 4, 5}, 2, ApproximationStatus::Unsolvable},
             Case{"fourOnAPlateForSixTerms", plate4, {1, 2, 3, 4}, 2, ApproximationStatus::Unsolvable},
             Case{"moreThan4000", sample(kLayouts[0], 4001, 2), std::vector<double>(4001, 1.0), 0,
                  ApproximationStatus::Unsolvable},
             Case{"notFinite", five, {1, 2, std::nan(""), 4, 5}, 0, ApproximationStatus::Unsolvable},
             Case{"fourOnAPlateLinear", plate4, {1, 2, 3, 4}, 1, ApproximationStatus::Solved},
             Case{"onePortQuadratic", {five[2]}, {6.5}, 2, ApproximationStatus::Solved},
             Case{"onePlaceOneValue", {five[3], five[1], five[3]}, {2, 5, 2}, 1, ApproximationStatus::Solved},
         }) {
        PortApproximation a;
        EXPECT_EQ(a.build(c.ports, c.values, c.order), c.status) << c.name;
        EXPECT_EQ(a.solved(), c.status == ApproximationStatus::Solved) << c.name;
        if (!a.solved()) continue;
        EXPECT_EQ(a.weights().size(), c.ports.size()) << c.name;
        for (std::size_t k = 0; k < c.ports.size(); ++k) EXPECT_NEAR(a(c.ports[k]), c.values[k], 1e-12) << c.name;
    }
}
