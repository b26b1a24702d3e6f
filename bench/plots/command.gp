# The whole command beside other programs, a panel for each kind of file.
set output
set terminal svg size 1000,820 dynamic noenhanced font "sans-serif,12" background "white"
set output target
set multiplot layout 2,2 title "From file to file: seconds by program, memory, threads or processes"
set logscale y 2
set yrange [0.015625:128]
set ylabel "seconds"
set xtics rotate by -40
set boxwidth 0.8
unset key
inputs = "towns.csv wide.csv lines records"
titles = "'Towns by three keys' 'Rows of 41 columns by one' 'Lines of 100 bytes' 'Records of 100 bytes'"
do for [i = 1:words(inputs)] {
    set title word(titles, i)
    plot results."/command-".word(inputs, i).".tsv" skip 1 \
         using 0:2:(strcol(1)[1:6] eq "tvsort" ? 1 : 2):xticlabels(1) with boxes linecolor variable
}
unset multiplot
