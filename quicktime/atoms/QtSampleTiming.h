// QtSampleTiming: what an edit list needs from its track's time-to-sample table to turn edits into
// media samples. The table atom implements it (as the movie and media headers implement
// QtTimeScaled), so that the edit list finds it in the tree without depending on the table's class.
#pragma once

class QtSampleTiming {
  public:
    // The samples covering a range of media time.
    struct Span {
        unsigned long first = 0;    // first sample of the range
        unsigned long end = 0;      // sample after the last one
        unsigned long endTime = 0;  // media time at the end sample
    };

    virtual ~QtSampleTiming() = default;
    // The dominant sample duration, in media time units (never 0).
    virtual unsigned int getTicksPerSample() const = 0;
    // The samples of the media time range from t0 to t1.
    virtual Span getSampleSpan(unsigned long t0, unsigned long t1) const = 0;
};
