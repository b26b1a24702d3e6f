situation = "room for entries"
load "bench/plots/contest.gp"
