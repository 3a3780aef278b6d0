#!/bin/sh
# Fails when library code outside platform/ makes one of the system calls
# listed in platform_calls.txt; prints each offending line.
# Usage: platform_calls.sh SOURCE_ROOT NAMES_FILE
set -eu
root=$1
names=$(cd "$(dirname "$2")" && pwd)/$(basename "$2")

files=$(cd "$root" && for dir in extract manifest verify status support include; do
  [ -d "$dir" ] && find "$dir" -type f \( -name '*.cc' -o -name '*.h' \)
done | sort)

cd "$root"
# shellcheck disable=SC2086  # one argument per file name; names have no blanks
exec perl -e '
  my $namesFile = shift @ARGV;
  open(my $list, "<", $namesFile) or die "$namesFile: $!\n";
  my @names = grep { /\S/ && !/^#/ } map { chomp; s/^\s+|\s+$//g; $_ } <$list>;
  my $name = "(?:" . join("|", @names) . ")";
  my $failed = 0;
  # Comments and string and character literals blanked out, line ends kept.
  sub Code {
    my ($file) = @_;
    local $/;
    open(my $in, "<", $file) or return "";
    my $text = <$in>;
    $text =~ s{("(?:[^"\\\n]|\\.)*")|(\x27(?:[^\x27\\\n]|\\.)*\x27)|(//[^\n]*)|(/\*.*?\*/)}
              {defined $4 ? ($4 =~ tr/\n//cdr) : defined $3 ? "" : "\"\""}gse;
    return $text;
  }
  # A type in front of the name: a declaration or definition such as
  # int64_t read(...) or char* read(...), not a call.
  sub Declares {
    my ($before) = @_;
    return $before =~ /(?:\b(?!return\b|else\b|throw\b|case\b)[A-Za-z_]\w*|[\w>][*&]|>)\s*$/;
  }
  my $call = qr/(?<![\w.>:])((?:::\s*)?)($name)\s*\(/;
  for my $file (@ARGV) {
    my $code = Code($file);
    # Functions of the unit itself (declared here or in its other half) that
    # share a name with a system call are called unqualified as members.
    my %own;
    (my $stem = $file) =~ s/\.(cc|h)$//;
    for my $text ($code, Code("$stem.h"), Code("$stem.cc")) {
      for my $line (split /\n/, $text) {
        while ($line =~ /$call/g) {
          $own{$2} = 1 if $1 eq "" && Declares(substr($line, 0, $-[0]));
        }
      }
    }
    my $number = 0;
    for my $line (split /\n/, $code) {
      ++$number;
      while ($line =~ /$call/g) {
        next if $1 eq "" && ($own{$2} || Declares(substr($line, 0, $-[0])));
        print "$file:$number: $2: $line\n";
        $failed = 1;
      }
    }
  }
  print STDERR "Make these calls through a function of platform/ instead.\n" if $failed;
  exit $failed;
' "$names" $files
