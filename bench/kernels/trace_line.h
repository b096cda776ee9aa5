#pragma once

namespace ravlo::bench {

/// Measures the row trace_line: one line through the trace log. Throws on failure.
void MeasureTraceLine(bool quick);

}  // namespace ravlo::bench
