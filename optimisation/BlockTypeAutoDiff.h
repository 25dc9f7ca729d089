#pragma once

#include "Block.h"

#include <unsupported/Eigen/AutoDiff>

#include <array>

namespace Block {

/// A residual block type given by a functor, differentiated in forward
/// mode. The functor states its sizes as compile-time constants and
/// computes the residuals for any scalar type:
///
///     struct F {
///         static constexpr int ResidualCount = ..., VariableCount = ..., ConstantCount = ...;
///         template <typename T> void operator()(const double* constants, const T* variables, T* residuals) const;
///     };
///
/// The Jacobian comes from one call on dual numbers whose derivative parts
/// have VariableCount entries, seeded with the identity.
template <typename Functor> class BlockTypeAutoDiff : public BlockTypeBase
{
public:
    static constexpr int Residuals = Functor::ResidualCount;
    static constexpr int Variables = Functor::VariableCount;
    using Derivatives = Eigen::Matrix<double, Variables, 1>;
    using Dual = Eigen::AutoDiffScalar<Derivatives>;

    explicit BlockTypeAutoDiff(Functor functor = Functor()) : m_functor(std::move(functor)) {}

    void residuals(const double* constants, const Vector& variables, double* out) const override
    {
        m_functor(constants, variables.data(), out);
    }

    void jacobian(const double* constants, const Vector& variables, double* out, int rowStride,
                  int columnCount) const override
    {
        std::array<Dual, Variables> x;
        for (int i = 0; i < Variables; ++i)
            x[size_t(i)] = Dual(variables[i], Variables, i);
        std::array<Dual, Residuals> r;
        m_functor(constants, x.data(), r.data());
        const int columns = std::min(columnCount, Variables);
        for (int row = 0; row < Residuals; ++row) {
            const Derivatives& d = r[size_t(row)].derivatives();
            // A residual that does not depend on any variable keeps an empty
            // derivative vector in Eigen's scalar.
            for (int c = 0; c < columns; ++c)
                out[row * rowStride + c] = d.size() == Variables ? d[c] : 0.0;
        }
    }

    int residualCount() const override { return Residuals; }
    int variableCount() const override { return Variables; }
    int constantCount() const override { return Functor::ConstantCount; }

    const Functor& functor() const { return m_functor; }

private:
    Functor m_functor;
};

} // namespace Block
