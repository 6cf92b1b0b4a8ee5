#!/usr/bin/perl
# Writes the ```cpp blocks of Markdown files, in order, as one C++
# translation unit, each block under a #line directive naming its place in
# its document, so that a compiler error points at the doc.
#
#   perl extract-snippets.pl OUT.cc PAGE.md...
#
# Only the standard headers below come first; everything else a snippet
# uses, the document includes itself.  The output is rewritten only when it
# changes.
use strict;
use warnings;

my ($outPath, @pages) = @ARGV;
die "usage: $0 OUT.cc PAGE.md...\n" unless defined $outPath && @pages;
my $out = "// Generated from @pages: their ```cpp blocks, in order.\n";
$out .= "#include <$_>\n" for qw(cstdint cstdio memory string vector);
for my $page (@pages) {
  open my $in, '<', $page or die "$page: $!\n";
  my ($inside, $blocks, $n) = (0, 0, 0);
  while (my $line = <$in>) {
    $n++;
    if (!$inside && $line =~ /^```cpp\s*$/) {
      $inside = 1;
      $blocks++;
      $out .= "#line " . ($n + 1) . " \"$page\"\n";
    } elsif ($inside && $line =~ /^```\s*$/) {
      $inside = 0;
    } elsif ($inside) {
      $out .= $line;
    }
  }
  close $in;
  die "$page: a ```cpp block is not closed\n" if $inside;
  die "$page: no ```cpp block\n" unless $blocks;
}
if (open my $old, '<', $outPath) {
  local $/;
  my $text = <$old>;
  close $old;
  exit 0 if defined $text && $text eq $out;
}
open my $fh, '>', $outPath or die "$outPath: $!\n";
print $fh $out;
close $fh or die "$outPath: $!\n";
