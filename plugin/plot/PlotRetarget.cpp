#include "plot/PlotRetarget.h"

#include "shell/Placeholder.h"

namespace ZUK {

namespace {
ORV::Application app;
}

PlotRetarget::PlotRetarget(ORV::Model model_, bool preserve_, bool inflection_, bool interval_, int step_,
                           int start_, int end_)
    : start(start_),
      end(end_),
      preserve(preserve_),
      inflection(inflection_),
      interval(interval_),
      step(step_),
      model(model_) {}

void PlotRetarget::plot() {
    app.LogMessage(L"plot is not built yet", 4);
    logPlaceholderCall(L"plot", {model.GetRef(), preserve, inflection, interval, step, start, end});
}

}  // namespace ZUK
