# Whole programs with the same memory, each sorting the same lines.
set title "Larger than memory, beside other programs"
set xlabel "data / memory"
set ylabel "seconds"
set yrange [0:*]
set style data histogram
programs = "tvsort 'GNU sort' 'GNU sort, 2 threads' SQLite PostgreSQL"
plot for [i = 1:words(programs)] where("other-programs.tsv", 1, word(programs, i)) \
     using 3:xticlabels(2) title word(programs, i)
