# What a request costs that sorts little.
set title "Small requests, records of 100 bytes"
set xlabel "records"
set ylabel "microseconds per request"
set logscale xy
plot results."/small-requests.tsv" skip 1 using 1:3 with linespoints title "time", \
     "" skip 1 using 1:4 with linespoints title "processor time"
