# Extension of urxvt: writes what the terminal holds to the file that is named in
#   ESC ] 777 ; dump ; FILE BEL
# with a "+" before each row that the next one continues, and a "." before the others.
sub on_osc_seq_perl {
    my ($term, $text) = @_;
    return unless $text =~ s/^dump;//;
    open my $file, ">:utf8", "$text.part" or return 1;
    for my $row ($term->top_row .. $term->nrow - 1) {
        my $length = $term->ROW_l($row);
        my $cells = $term->ROW_t($row);
        $cells = substr $cells, 0, $length if $length >= 0;
        print $file $term->ROW_is_longer($row) ? "+" : ".", $term->special_decode($cells), "\n";
    }
    close $file;
    rename "$text.part", $text;
    1
}
