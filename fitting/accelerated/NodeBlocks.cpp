#include "NodeBlocks.h"

namespace EmbeddedGraphDeformer {
namespace detail {

namespace {

using Block6 = Eigen::Matrix<float, 6, 6>;

#if defined(__x86_64__) && defined(__GNUC__)
__attribute__((target("avx2"))) void invertFourDamped6Avx2(const Block6* in, float damping, Block6* out)
{
    invertFourDamped(in, damping, out);
}
#endif

void invertFourDamped6Plain(const Block6* in, float damping, Block6* out)
{
    invertFourDamped(in, damping, out);
}

using InvertFour = void (*)(const Block6*, float, Block6*);

InvertFour widestInvertFour()
{
#if defined(__x86_64__) && defined(__GNUC__)
    if (__builtin_cpu_supports("avx2"))
        return invertFourDamped6Avx2;
#endif
    return invertFourDamped6Plain;
}

} // namespace

void invertFourDamped6(const Block6* in, float damping, Block6* out)
{
    static const InvertFour invert = widestInvertFour();
    invert(in, damping, out);
}

} // namespace detail
} // namespace EmbeddedGraphDeformer
