# Reads the C++ sources of the repository for the checks: which files there are, and their text
# without comments, or without comments and literals, with every line at its own number. It judges
# nothing.
package Source;

use strict;
use warnings;

use Cwd qw(abs_path);
use File::Basename qw(dirname);
use Exporter qw(import);

our @EXPORT_OK =
  qw(repository source_files read_text without_comments without_literals includes_of);

# The repository's folder.
sub repository {
  return dirname(dirname(dirname(abs_path(__FILE__))));
}

# The .h and .cpp files below the given folders of the repository, sorted, as paths from its root.
sub source_files {
  my @folders = grep { -d repository() . "/$_" } @_;
  return () unless @folders;
  my @command = ('find', (map { repository() . "/$_" } @folders),
    '-type', 'f', '(', '-name', '*.h', '-o', '-name', '*.cpp', ')');
  open(my $find, '-|', @command) or die "find: $!\n";
  my @paths = <$find>;
  close($find) or die "find failed\n";
  chomp(@paths);
  my $root = repository() . '/';
  return sort map { substr($_, length($root)) } @paths;
}

sub read_text {
  my ($path) = @_;
  open(my $file, '<', repository() . "/$path") or die "$path: $!\n";
  local $/;
  my $text = <$file>;
  close($file);
  return $text // '';
}

sub line_ends {
  my ($text) = @_;
  return "\n" x ($text =~ tr/\n//);
}

# A number is a token of its own, so that the quotes in 1'000'000 open no character literal.
my $number  = qr/(?<![A-Za-z0-9_])[0-9](?:'?[A-Za-z0-9_.])*/;
my $comment = qr{//(?:\\\n|[^\n])*|/\*.*?\*/}s;
my $literal = qr/R"([^\s()\\]{0,16})\(.*?\)\g{-1}"|"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])*'/s;

sub without_comments {
  my ($text) = @_;
  $text =~ s{($number)|($comment)|($literal)}{$2 ? ' ' . line_ends($2) : $&}ge;
  return $text;
}

sub without_literals {
  my ($text) = @_;
  $text =~ s{($number)|($comment)|($literal)}{
    defined $1 ? $1 : $2 ? ' ' . line_ends($2) : '""' . line_ends($3)
  }ge;
  return $text;
}

# The include lines of a file: a list of [line number, '"' or '<', path].
sub includes_of {
  my ($path) = @_;
  my @found;
  my $number = 0;
  for my $line (split /\n/, without_comments(read_text($path))) {
    $number++;
    push @found, [$number, $1, $2] if $line =~ /^\s*#\s*include\s*(["<])([^">]+)[">]/;
  }
  return @found;
}

1;
