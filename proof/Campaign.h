#pragma once

#include <cstddef>
#include <string>

namespace kx::proof {

/// What a campaign is asked for on its command line.
struct Options {
    bool isShort;  ///< `--short`: a sample that CI has time for; the same kinds of points, fewer of each
};

/// Reads `--short`; ends the program with a usage text for anything else.
/// @param purpose  what the program does, in a sentence, for `--help`.
Options ReadOptions(int count, char** arguments, const char* purpose);

/// Puts temporary folders where no disk is, unless $TMPDIR says otherwise: thousands of syncs cost nothing there.
void WorkInMemory();

/// One campaign of a proof: counts the points that were tried and those where a promise was broken, and shows progress
/// on a terminal.
///
///     Campaign kill("crash: kill -9");
///     kill.Begin("replace at call 17, write");
///     kill.Check(contents == old || contents == fresh, "the file is neither old nor new");
///     return kill.End(500);
/// @thread one
class Campaign {
public:
    explicit Campaign(std::string name);

    /// A new point is tried now.
    /// @param point  where it is, for the message if it fails: enough to find it again.
    void Begin(const std::string& point);

    /// A promise at the current point; a broken one is printed with the point, the first 20 of a campaign.
    /// @return held
    bool Check(bool held, const std::string& promise);

    [[nodiscard]] size_t Points() const { return m_points; }

    /// Prints the figures: `crash: kill -9: 812 points, 0 broken promises`.
    /// @param atLeast  points that must have been tried; fewer are a failure too.
    /// @return 0, or 1 where the campaign has failed: the program's exit status.
    int End(size_t atLeast);

private:
    void ShowProgress() const;

    std::string m_name;
    std::string m_point;
    size_t m_points = 0;
    size_t m_broken = 0;
};

}  // namespace kx::proof
