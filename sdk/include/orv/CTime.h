// A point in time, held in frames.
#pragma once

namespace ORV {

enum ovTimeFormat { ovFrames = 0, ovSeconds = 1 };

class CTime {
public:
    constexpr CTime() noexcept = default;
    constexpr CTime(double frames) noexcept : m_frames(frames) {}
    // With ovSeconds the time is converted at frameRate frames per second; with ovFrames it is
    // taken as frames and frameRate is not used.
    constexpr CTime(double time, ovTimeFormat fmt, double frameRate) noexcept
        : m_frames(fmt == ovSeconds ? time * frameRate : time) {}

    constexpr operator double() const noexcept { return m_frames; }

    // In frames.
    constexpr double GetTime() const noexcept { return m_frames; }
    // In the given format; seconds need a frame rate above 0 (otherwise 0 is returned).
    constexpr double GetTime(ovTimeFormat fmt, double frameRate) const noexcept {
        return fmt == ovSeconds ? (frameRate > 0.0 ? m_frames / frameRate : 0.0) : m_frames;
    }
    constexpr void PutTime(double frames) noexcept { m_frames = frames; }
    constexpr void PutTime(double time, ovTimeFormat fmt, double frameRate) noexcept {
        m_frames = fmt == ovSeconds ? time * frameRate : time;
    }

private:
    double m_frames = 0.0;
};

}  // namespace ORV
