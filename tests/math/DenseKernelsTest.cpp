// The dense kernels against Eigen's own LU and products.
#include <random>

#include <Eigen/Dense>
#include <gtest/gtest.h>

#include "math/DenseKernels.h"
#include "math/PackedMatrix.h"
#include "engine/KELMException.h"

using namespace kelm;

TEST(MathDenseKernels, LuSolveAgreesWithEigenForOrders1To24) {
    std::mt19937 rng(42);
    std::uniform_real_distribution<float> u(-1, 1);
    for (int n = 1; n <= 24; ++n) {
        for (int trial = 0; trial < 5; ++trial) {
            Eigen::MatrixXf A(n, n);
            for (int i = 0; i < A.size(); ++i) A.data()[i] = u(rng);
            A += Eigen::MatrixXf::Identity(n, n) * 0.5f;  // keep the condition number modest
            Eigen::VectorXf b(n);
            for (int i = 0; i < n; ++i) b[i] = u(rng);
            Eigen::VectorXf reference = A.partialPivLu().solve(b);
            Eigen::MatrixXf LU = A;
            std::vector<int> piv(n);
            ASSERT_EQ(0, ludcmp(n, LU.data(), n, piv.data()));
            Eigen::VectorXf x(n);
            ASSERT_EQ(0, lubksb(n, LU.data(), n, piv.data(), x.data(), b.data()));
            double cond = A.jacobiSvd().singularValues()(0) / A.jacobiSvd().singularValues()(n - 1);
            double tol = 1e-6 * cond * std::max(1.0f, reference.cwiseAbs().maxCoeff());
            for (int i = 0; i < n; ++i) EXPECT_NEAR(reference[i], x[i], tol) << "n=" << n;
            // The pivot list is a permutation of the rows of the unfactored matrix.
            std::vector<int> sorted = piv;
            std::sort(sorted.begin(), sorted.end());
            for (int i = 0; i < n; ++i) EXPECT_EQ(i, sorted[i]);
        }
    }
}

TEST(MathDenseKernels, LuEdgeCases) {
    int piv[3] = {7, 7, 7};
    EXPECT_EQ(0, ludcmp(0, nullptr, 0, piv));
    EXPECT_EQ(7, piv[0]);
    float x0 = 5;
    EXPECT_EQ(0, lubksb(0, nullptr, 0, piv, &x0, nullptr));
    EXPECT_EQ(5, x0);

    Eigen::Matrix2f zeroColumn;
    zeroColumn << 0, 1, 0, 2;
    EXPECT_EQ(-1, ludcmp(2, zeroColumn.data(), 2, piv));
    Eigen::Matrix2f tiny;
    tiny << 1e-21f, 0, 0, 1;
    EXPECT_EQ(-1, ludcmp(2, tiny.data(), 2, piv));
    tiny << 1e-19f, 0, 0, 1;
    EXPECT_EQ(0, ludcmp(2, tiny.data(), 2, piv));
    Eigen::Matrix2f nan;
    nan << std::nanf(""), 0, 0, 1;
    EXPECT_EQ(-1, ludcmp(2, nan.data(), 2, piv));

    // Equal magnitudes in the pivot column: the upper row stays, no swap.
    Eigen::Matrix2f tie;
    tie << 2, 1, -2, 3;
    ASSERT_EQ(0, ludcmp(2, tie.data(), 2, piv));
    EXPECT_EQ(0, piv[0]);
    EXPECT_EQ(1, piv[1]);
    EXPECT_FLOAT_EQ(-1, tie(1, 0));  // the multiplier
    EXPECT_FLOAT_EQ(4, tie(1, 1));
}

TEST(MathDenseKernels, VectorKernelsAndGemv) {
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> u(-1, 1);
    for (int n : {1, 3, 4, 5, 9, 17}) {
        Eigen::VectorXf x(n), y(n);
        for (int i = 0; i < n; ++i) {
            x[i] = u(rng);
            y[i] = u(rng);
        }
        EXPECT_NEAR(x.dot(y), dot(x.data(), y.data(), n), 1e-5);
        Eigen::VectorXf z = y;
        axpy(n, 0.5f, x.data(), z.data());
        EXPECT_TRUE(z.isApprox(y + 0.5f * x, 1e-6f));
        z = x;
        scal(n, -3, z.data());
        EXPECT_TRUE(z.isApprox(-3 * x, 1e-6f));

        Eigen::MatrixXf A = Eigen::MatrixXf::Random(n, n);
        Eigen::VectorXf out = y;
        gemv(KernelColMajor, KernelNoTrans, n, n, 2.0f, A.data(), n + 3, x.data(), 1, 0.5f, out.data(), 1);
        Eigen::VectorXf expect = 0.5f * y + 2.0f * A * x;
        for (int i = 0; i < n; ++i) EXPECT_NEAR(expect[i], out[i], 1e-5);  // lda is ignored
        out = y;
        gemv(KernelColMajor, KernelTrans, n, n, 2.0f, A.data(), n, x.data(), 1, 0.5f, out.data(), 1);
        EXPECT_TRUE(out.isApprox(0.5f * y));  // a transposed request only scales
    }
    float y[1] = {std::nanf("")};
    float a[1] = {1}, x[1] = {1};
    gemv(KernelColMajor, KernelNoTrans, 1, 1, 1, a, 1, x, 1, 0.0f, y, 1);
    EXPECT_TRUE(std::isnan(y[0]));  // beta 0 multiplies: NaN stays NaN
}

TEST(MathDenseKernels, PackedMatrixProductAndShapeChecks) {
    Eigen::MatrixXf M = Eigen::MatrixXf::Random(3, 5);  // five columns: second group padded with zeros
    PackedMatrix p(M.data(), 3, 5);
    Eigen::VectorXf x = Eigen::VectorXf::Random(5);
    Eigen::VectorXf y(3);
    ASSERT_TRUE(p.product(x.data(), y.data(), 5, 3));
    EXPECT_TRUE(y.isApprox(M * x, 1e-5f));
    M *= 2;
    ASSERT_TRUE(p.updateMatrix(M.data(), 3, 5));
    ASSERT_TRUE(p.product(x.data(), y.data(), 5, 3));
    EXPECT_TRUE(y.isApprox(M * x, 1e-5f));
    // Another shape is refused and changes nothing.
    EXPECT_FALSE(p.updateMatrix(M.data(), 5, 3));
    const Eigen::VectorXf before = y;
    EXPECT_FALSE(p.product(x.data(), y.data(), 4, 3));
    EXPECT_EQ(before, y);
}
