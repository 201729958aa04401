#include "glue/SpineMap.h"

#include "core/BezierCurve.h"

namespace ZUK {

SpineMap::~SpineMap() {
    delete curve;
    delete[] animated;
    delete[] directions;
    delete[] segmentTransforms;
}

}  // namespace ZUK
