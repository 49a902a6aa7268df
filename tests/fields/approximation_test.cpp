// The port approximation: interpolation at the ports, exact polynomials of
// its order on every arrangement of ports, the terms it drops, its failures,
// and agreement with a plainly assembled interpolant.
#include <gtest/gtest.h>

#include <Eigen/Dense>
#include <cmath>
#include <functional>
#include <random>

#include "api/fields/approximation.h"

using tundrel::ApproximationStatus;
using tundrel::PortApproximation;
using Vec = z::zVec<double>;

namespace {

// Points of one arrangement from two parameters in [0, 1).
struct Layout {
    const char* name;
    std::function<Vec(double, double)> at;
    int dimension;
    int terms[3];  // kept at orders 0, 1, 2
};

const Layout kLayouts[] = {
    {"cloud", nullptr, 3, {1, 4, 10}},
    {"plate", [](double s, double t) { return Vec(4 * s - 1, 3 * t + 2, 0.75); }, 2, {1, 3, 6}},
    {"tiltedPlane", [](double s, double t) { return Vec(3 * s, 2 * t - 1, 3 * s + 2 * (2 * t - 1) - 1); }, 2, {1, 3, 6}},
    {"line", [](double s, double) { return Vec(1 + 2 * s, -s, 0.5 + 4 * s); }, 1, {1, 2, 3}},
    {"sphere",
     [](double s, double t) {
         const double th = std::acos(1 - 2 * t), ph = 6.283185307179586 * s;
         return Vec(1 + 2 * std::sin(th) * std::cos(ph), 1 + 2 * std::sin(th) * std::sin(ph), 1 + 2 * std::cos(th));
     },
     3, {1, 4, 9}},
    {"saddle", [](double s, double t) { return Vec(4 * s, 3 * t, 0.5 * (4 * s) * (3 * t)); }, 3, {1, 4, 9}},
};

std::vector<Vec> sample(const Layout& l, int n, unsigned seed) {
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    std::vector<Vec> p;
    for (int k = 0; k < n; ++k) {
        const double s = u(gen), t = u(gen);
        p.push_back(l.at ? l.at(s, t) : Vec(-2 + 5 * s, 1 + 3 * t, -1 + 2 * u(gen)));
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

std::vector<double> valuesOf(int order, const std::vector<Vec>& p) {
    std::vector<double> v;
    for (const Vec& q : p) v.push_back(field(order, q));
    return v;
}

}  // namespace

class ApproximationLayouts : public ::testing::TestWithParam<std::tuple<int, int>> {};

TEST_P(ApproximationLayouts, InterpolatesAndReproducesPolynomialsOfItsOrder) {
    const Layout& l = kLayouts[std::get<0>(GetParam())];
    const int order = std::get<1>(GetParam());
    const std::vector<Vec> ports = sample(l, 40, 7);
    const std::vector<Vec> elsewhere = sample(l, 300, 99);

    PortApproximation a;
    ASSERT_EQ(a.build(ports, valuesOf(order, ports), order), ApproximationStatus::Solved) << l.name;
    EXPECT_EQ(a.dimension(), l.dimension);
    EXPECT_EQ(static_cast<int>(a.terms().size()), l.terms[order]);
    std::vector<double> x, y, z, got(elsewhere.size());
    for (const Vec& p : elsewhere) x.push_back(p.x), y.push_back(p.y), z.push_back(p.z);
    a.evaluate(x.data(), y.data(), z.data(), elsewhere.size(), got.data());
    for (std::size_t k = 0; k < elsewhere.size(); ++k)
        ASSERT_NEAR(got[k], field(order, elsewhere[k]), 1e-9) << l.name << " order " << order << " point " << k;

    // Values that follow no polynomial are met at the ports themselves.
    std::vector<double> rough;
    for (std::size_t k = 0; k < ports.size(); ++k) rough.push_back(std::sin(3.0 * k) + 0.1 * ports[k].x);
    ASSERT_EQ(a.build(ports, rough, order), ApproximationStatus::Solved);
    for (std::size_t k = 0; k < ports.size(); ++k) EXPECT_NEAR(a(ports[k]), rough[k], 1e-9) << l.name << " port " << k;
}

INSTANTIATE_TEST_SUITE_P(All, ApproximationLayouts,
                         ::testing::Combine(::testing::Range(0, static_cast<int>(std::size(kLayouts))),
                                            ::testing::Values(0, 1, 2)),
                         [](const auto& info) {
                             return std::string(kLayouts[std::get<0>(info.param)].name) + "_order" +
                                    std::to_string(std::get<1>(info.param));
                         });

// The interpolant is unique, so one assembled directly in the raw
// coordinates, with every monomial, must give the same values.
TEST(Approximation, AgreesWithThePlainlyAssembledInterpolant) {
    const std::vector<Vec> ports = sample(kLayouts[0], 30, 3);
    std::vector<double> f;
    for (std::size_t k = 0; k < ports.size(); ++k) f.push_back(std::cos(1.7 * k) * 10.0);
    for (int order : {0, 1, 2}) {
        auto mono = [order](const Vec& p) {
            std::vector<double> m{1.0};
            if (order >= 1) m.insert(m.end(), {p.x, p.y, p.z});
            if (order >= 2) m.insert(m.end(), {p.x * p.x, p.x * p.y, p.x * p.z, p.y * p.y, p.y * p.z, p.z * p.z});
            return m;
        };
        const auto n = static_cast<Eigen::Index>(ports.size());
        const auto t = static_cast<Eigen::Index>(mono(ports[0]).size());
        Eigen::MatrixXd K = Eigen::MatrixXd::Zero(n + t, n + t);
        Eigen::VectorXd rhs = Eigen::VectorXd::Zero(n + t);
        for (Eigen::Index i = 0; i < n; ++i) {
            for (Eigen::Index j = 0; j < n; ++j) K(i, j) = (ports[i] - ports[j]).length();
            const auto m = mono(ports[i]);
            for (Eigen::Index j = 0; j < t; ++j) K(i, n + j) = K(n + j, i) = m[j];
            rhs(i) = f[i];
        }
        const Eigen::VectorXd sol = K.fullPivLu().solve(rhs);
        PortApproximation a;
        ASSERT_EQ(a.build(ports, f, order), ApproximationStatus::Solved);
        for (const Vec& p : sample(kLayouts[0], 50, 11)) {
            double expected = 0.0;
            for (Eigen::Index i = 0; i < n; ++i) expected += sol(i) * (p - ports[i]).length();
            const auto m = mono(p);
            for (Eigen::Index j = 0; j < t; ++j) expected += sol(n + j) * m[j];
            EXPECT_NEAR(a(p), expected, 1e-8 * (1.0 + std::abs(expected))) << "order " << order;
        }
        // Ports that are given twice with one value change nothing.
        std::vector<Vec> twice = ports;
        std::vector<double> g = f;
        twice.push_back(ports[4]), g.push_back(f[4]);
        PortApproximation b;
        ASSERT_EQ(b.build(twice, g, order), ApproximationStatus::Solved);
        EXPECT_EQ(b.weights().size(), twice.size());
        EXPECT_EQ(b.weights().back(), 0.0);
        EXPECT_NEAR(b(Vec(0.1, 2.2, 0.3)), a(Vec(0.1, 2.2, 0.3)), 1e-9);
    }
}

TEST(Approximation, FailuresAndTheSmallestCases) {
    const std::vector<Vec> five = sample(kLayouts[0], 5, 1);
    const std::vector<Vec> plate4 = sample(kLayouts[1], 4, 1);
    struct Case {
        const char* name;
        std::vector<Vec> ports;
        std::vector<double> values;
        int order;
        ApproximationStatus status;
    };
    const Case cases[] = {
        {"valuesShort", five, {1, 2, 3, 4}, 1, ApproximationStatus::SizesDiffer},
        {"orderThree", five, {1, 2, 3, 4, 5}, 3, ApproximationStatus::SizesDiffer},
        {"noPorts", {}, {}, 0, ApproximationStatus::Unsolvable},
        {"onePlaceTwoValues", {five[0], five[1], five[0]}, {1, 2, 3}, 0, ApproximationStatus::Unsolvable},
        {"fiveForTenTerms", five, {1, 2, 3, 4, 5}, 2, ApproximationStatus::Unsolvable},
        {"fourOnAPlateForSixTerms", plate4, {1, 2, 3, 4}, 2, ApproximationStatus::Unsolvable},
        {"notFinite", five, {1, 2, std::nan(""), 4, 5}, 0, ApproximationStatus::Unsolvable},
        {"fourOnAPlateLinear", plate4, {1, 2, 3, 4}, 1, ApproximationStatus::Solved},
        {"onePortQuadratic", {five[2]}, {6.5}, 2, ApproximationStatus::Solved},
        {"onePlaceOneValue", {five[3], five[3]}, {2, 2}, 2, ApproximationStatus::Solved},
    };
    for (const Case& c : cases) {
        PortApproximation a;
        EXPECT_EQ(a.build(c.ports, c.values, c.order), c.status) << c.name;
        EXPECT_EQ(a.solved(), c.status == ApproximationStatus::Solved) << c.name;
        if (!a.solved()) continue;
        for (std::size_t k = 0; k < c.ports.size(); ++k) EXPECT_NEAR(a(c.ports[k]), c.values[k], 1e-12) << c.name;
    }
    PortApproximation single;
    ASSERT_EQ(single.build({Vec(1, 2, 3)}, {6.5}, 2), ApproximationStatus::Solved);
    EXPECT_EQ(single.dimension(), 0);
    EXPECT_DOUBLE_EQ(single(Vec(-40, 7, 100)), 6.5);
}
