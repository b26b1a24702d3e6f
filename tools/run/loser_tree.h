// The first of several sources, again and again, with one comparison a level: a tree of losers
// (Knuth, The Art of Computer Programming 3, 5.4.1).
//
//     match 1              0           the winner of all stands above the tree
//     matches 2, 3      1     2        the loser stays in its match
//     sources          0 1   2 3       match n is played by the winners of 2 n and 2 n + 1

#pragma once

#include <cstddef>
#include <utility>
#include <vector>

namespace tvsort::tools {

class LoserTree {
  public:
    explicit LoserTree(std::size_t sourceCount) : sourceCount_(sourceCount), losers_(sourceCount) {}

    // Plays all matches. `precedes(a, b)`: whether source a stands before b, without equals.
    template <typename Precedes>
    void start(const Precedes& precedes) {
        if (sourceCount_ > 0) winner_ = play(1, precedes);
    }
    // Plays those of the winner, whose head has changed.
    template <typename Precedes>
    void replay(const Precedes& precedes) {
        for (std::size_t match = (winner_ + sourceCount_) / 2; match > 0; match /= 2) {
            if (precedes(losers_[match], winner_)) std::swap(losers_[match], winner_);
        }
    }
    // A source, where there is one.
    std::size_t winner() const { return winner_; }

  private:
    // Those from sourceCount_ on are the sources. The depth is the logarithm of their number.
    template <typename Precedes>
    std::size_t play(std::size_t match, const Precedes& precedes) {
        if (match >= sourceCount_) return match - sourceCount_;
        const std::size_t left = play(2 * match, precedes);
        const std::size_t right = play(2 * match + 1, precedes);
        const bool leftWins = precedes(left, right);
        losers_[match] = leftWins ? right : left;
        return leftWins ? left : right;
    }

    std::size_t sourceCount_;
    std::vector<std::size_t> losers_;
    std::size_t winner_ = 0;
};

}  // namespace tvsort::tools
