# Whether the time per record and level of comparison stays level as data grows.
set title "Growth, records of 100 bytes"
set xlabel "records"
set ylabel "ns per record and level"
set logscale x 2
stats results."/growth.tsv" skip 1 using 2 name "records" nooutput
set xrange [records_min * 0.9 : records_max * 1.1]
set yrange [0:*]
situations = "'with room' 'just fitting' 'data = 2 x memory' 'data = 8 x memory' 'data = 20 x memory'"
plot for [i = 1:words(situations)] where("growth.tsv", 1, word(situations, i)) using 2:4:xticlabels(2) \
     with linespoints title word(situations, i)
