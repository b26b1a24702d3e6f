# What all plots share. Wants `results`, the folder of the benchmark's values, and `target`, the file
# to write.
set terminal svg size 820,440 dynamic noenhanced font "sans-serif,13" background "white"
set output target
set datafile separator tab
set border 3 lc rgb "#606060"
set tics nomirror
set grid ytics back linetype 1 linecolor rgb "#e0e0e0" linewidth 1
set key outside bottom center horizontal Left reverse height 1
set style fill solid 0.9 noborder
set style histogram clustered gap 1.5
set boxwidth 0.9
set linetype 1 lc rgb "#0b5394" lw 2 pt 7
set linetype 2 lc rgb "#cc4125" lw 2 pt 5
set linetype 3 lc rgb "#6aa84f" lw 2 pt 9
set linetype 4 lc rgb "#e69138" lw 2 pt 11
set linetype 5 lc rgb "#674ea7" lw 2 pt 13
set linetype cycle 5

# The lines of a file whose column has a value.
where(file, column, value) = sprintf("< awk -F'\\t' '$%d == \"%s\"' %s/%s", column, value, results, file)
