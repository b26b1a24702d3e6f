situation = "just fitting"
load "bench/plots/contest.gp"
