// Element access of the vector arrays (the other arrays are templates in Arrays.h).
#include <orv/Arrays.h>
#include <orv/Math.h>

namespace ORV {
namespace MATH {

namespace {

template <class V, class Items>
V& Element(Items& items, long i) noexcept {
    if (i >= 0 && static_cast<std::size_t>(i) < items.size()) return items[static_cast<std::size_t>(i)];
    static V scratch;
    scratch = V();
    return scratch;
}

template <class V, class Items>
const V& ConstElement(const Items& items, long i) noexcept {
    if (i >= 0 && static_cast<std::size_t>(i) < items.size()) return items[static_cast<std::size_t>(i)];
    static const V outside;
    return outside;
}

}  // namespace

const CVector3& CVector3Array::operator[](long i) const noexcept {
    return ConstElement<CVector3>(m_items, i);
}
CVector3& CVector3Array::operator[](long i) noexcept { return Element<CVector3>(m_items, i); }
const CVector4& CVector4Array::operator[](long i) const noexcept {
    return ConstElement<CVector4>(m_items, i);
}
CVector4& CVector4Array::operator[](long i) noexcept { return Element<CVector4>(m_items, i); }

}  // namespace MATH
}  // namespace ORV
