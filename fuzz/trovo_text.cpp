// Normalised motion files in their text form: a version word, counts, then numbers.
// Their own target, so that the fuzzer works from seeds of one form.
#include "MotionFile.h"

TROVO_FUZZ_TARGET(trovo_text) { return trovofuzz::ReadMotionFile(data, size); }
