situation = "first request, room for entries"
load "bench/plots/contest.gp"
