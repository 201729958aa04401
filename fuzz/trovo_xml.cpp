// Normalised motion files in their XML form: a header element with the counts, then poses and key timing.
// Their own target, so that the fuzzer works from seeds of one form.
#include "MotionFile.h"

TROVO_FUZZ_TARGET(trovo_xml) { return trovofuzz::ReadMotionFile(data, size); }
