# Time per record and blocks read, from ample memory to little.
set title "From ample memory to little, records of 100 bytes"
set xlabel "data / memory"
set ylabel "ns per record"
set y2label "reads of each block"
set logscale x
set xrange [0.09:22]
set xtics (0.1, 0.2, 0.5, 1, 2, 5, 10, 20)
set y2tics
set yrange [0:*]
set y2range [0:*]
set border 11
plot results."/curve.tsv" skip 1 using 4:2 with linespoints title "ns per record", \
     "" skip 1 using 4:6 axes x1y2 with linespoints title "reads per block", \
     "" skip 1 using 4:($5 > 0 ? $5 : 1/0) axes x1y2 with lines dashtype 2 title "expected: 1 + 2 ln x"
