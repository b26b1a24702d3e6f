situation = "with room"
load "bench/plots/contest.gp"
