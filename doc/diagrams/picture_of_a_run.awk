# Draws the output of ./run as run.svg: ./run | awk -f doc/diagrams/picture_of_a_run.awk >doc/diagrams/run.svg
# The levels of the log records have a colour each.

BEGIN {
    split("#ff7b72 #ffa657 #ffa657 #d2a8ff #7ee787 #a5d6ff #79c0ff #8b949e #6e7681", colour_of_level)
    row = 18 # pixels, as below
}

/^[0-9]/ { is_running = 1 }
/^Capture of/ { exit }
is_running {
    gsub(/&/, "\\&amp;")
    gsub(/</, "\\&lt;")
    gsub(/\t/, " ")
    line[++lines] = length($0) > 110 ? substr($0, 1, 107) "..." : $0
}

END {
    printf "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"960\" height=\"%d\">\n", row * (lines + 2)
    print "<rect width=\"100%\" height=\"100%\" rx=\"8\" fill=\"#0d1117\"/>"
    print "<g font-family=\"DejaVu Sans Mono,Menlo,Consolas,monospace\" font-size=\"13\" xml:space=\"preserve\">"
    for (i = 1; i <= lines; ++i) {
        is_record = line[i] ~ /^[0-9:.]+ [1-9] /
        level = substr(line[i], 14, 1)
        colour = is_record ? colour_of_level[level] : line[i] ~ /^---|:$/ ? "#ffffff" : "#c9d1d9"
        printf "<text x=\"20\" y=\"%d\" fill=\"%s\">%s</text>\n", row * (i + 1), colour, line[i]
    }
    print "</g>\n</svg>"
}
