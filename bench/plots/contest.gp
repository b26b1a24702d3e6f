# Processor time of each peer as a multiple of the process's, for each workload of `situation`. What
# stands above 1 takes longer than the process.
set output
set terminal svg size 1200,560 dynamic noenhanced font "sans-serif,13" background "white"
set output target
set title "Peers beside the process, memory: ".situation
set ylabel "processor time, process = 1"
set logscale y 2
set xtics rotate by -40
set arrow from graph 0,first 1 to graph 1,first 1 nohead lc rgb "black" lw 1.5
peers = "std::sort pdqsort 'pairs compared' 'pairs radix'"
of(peer) = sprintf("< awk -F'\\t' '$1 == \"%s\" && $3 == \"%s\"' %s/in-memory.tsv", \
                   situation, peer, results)
stats of("std::sort") using 0 name "row" nooutput
set xrange [-0.5 : row_max + 0.5]
plot for [i = 1:words(peers)] of(word(peers, i)) using 0:11:xticlabels(2) with points pointsize 1.2 \
     title word(peers, i)
