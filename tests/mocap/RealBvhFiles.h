// The real BVH files the tests read, with the joint and frame counts read by hand from each
// file's own text (the joints under HIERARCHY, the "Frames:" line).
#pragma once

#include <ostream>

namespace bvhtest {

struct RealBvhFile {
    const char* path;  // below tests/data
    int joints;
    int frames;
};

inline constexpr RealBvhFile kRealBvhFiles[] = {
    {"bvh/cmu_mb2010/02_01.bvh", 31, 344},
    {"bvh/cmu_mb2010/02_03.bvh", 31, 174},
    {"bvh/cmu_mb2010/02_04.bvh", 31, 484},
    {"bvh/cmu_mb2010/07_05.bvh", 31, 518},
    {"bvh/cmu_mb2010/09_06.bvh", 31, 142},
    {"bvh/cmu_mb2008/01_01.bvh", 31, 2752},
    {"bvh/cmu_3dsmax/01_01.bvh", 31, 2751},
    {"bvh/other_rokoko_mixamo_preset/jesse_dance.bvh", 60, 1007},
    {"bvh/other_fair_animdrawings/dab.bvh", 27, 339},
};

// Names a parameterised case by its file.
inline void PrintTo(const RealBvhFile& f, std::ostream* os) { *os << f.path; }

}  // namespace bvhtest
