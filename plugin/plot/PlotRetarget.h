// ZUK::PlotRetarget: bakes the live retarget result of a model to animation curves and removes
// the operators.
#pragma once

#include <orv/ORV.h>

namespace ZUK {

class PlotRetarget {
public:
    // Plots frames [start, end) of `model`. `preserve` keeps the source's key timing,
    // `inflection` keys peaks, valleys and inflection points, `interval` keys every `step` frames.
    PlotRetarget(ORV::Model model, bool preserve, bool inflection, bool interval, int step, int start,
                 int end);

    // Does the whole plot.
    void plot();

    int start;
    int end;
    bool preserve;
    bool inflection;
    bool interval;
    int step;
    ORV::Model model;
};

}  // namespace ZUK
