// QtFrameSet: the numbering of frames in stretches of 256 (units). Per-unit caches (the key sets of
// the sync tables, the frame sets of the composition offsets) are keyed by unit and derive from
// this base, which holds the unit and the unit's first frame.
#pragma once

class QtFrameSet {
public:
    // A stretch of 256 consecutive frames: unit u holds frames u * 256 up to u * 256 + 255.
    using Unit = unsigned int;
    static constexpr unsigned int kUnitFrames = 256;
    static constexpr unsigned int kUnitShift = 8;

    static Unit frameToUnit(unsigned long frame) { return static_cast<Unit>(frame >> kUnitShift); }
    static unsigned long unitToFrame(Unit unit) { return static_cast<unsigned long>(unit) << kUnitShift; }

    explicit QtFrameSet(Unit unit = 0) : m_unit(unit) {}

    Unit getUnit() const { return m_unit; }
    // The unit's first frame.
    unsigned long getInFrame() const { return unitToFrame(m_unit); }
    // One past the last frame the unit can hold.
    unsigned long getMaxOutFrame() const { return getInFrame() + kUnitFrames; }
    // The frame lies in this unit.
    bool canHold(unsigned long frame) const { return frame >= getInFrame() && frame < getMaxOutFrame(); }

protected:
    void setUnit(Unit unit) { m_unit = unit; }

private:
    Unit m_unit;
};
