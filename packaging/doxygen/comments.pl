#!/usr/bin/perl
# comments.pl HEADER: prints a public header with its plain comments written as Doxygen wants them.
# Doxygen calls it as its input filter, so the headers themselves know nothing of Doxygen.
#
#   the comment that opens the file     describes the file
#   ---- title: more ----               a module in C, a group of members within a C++ class
#   a comment above a declaration       describes it; above several that have comments of their own,
#                                       or above several macros, it is the title of a group
#   a comment behind code               describes what stands on that line
#
# Within a description:
#
#     name  text                        an argument (two blanks in front, two or more behind)
#   ZU_SUCCESS: text, ZU_FAILURE:, 0:   a result
#   Result: text                        what a request returns
#   See also text                       see also
use strict;
use warnings;

my $file = $ARGV[0];
open my $in, '<', $file or die "$file: $!\n";
my @lines = <$in>;
chomp @lines;
(my $name = $file) =~ s{.*/}{};
(my $module = $name) =~ s/\W/_/g;
my $is_c = $name =~ /\.h$/;

my $c_rules = 'zu_net_dev_api_h_rules';

my $modules      = 0;     # begun so far
my $in_module    = 0;     # or in a group of members
my $in_group     = 0;     # ends with the next empty line or closing brace
my $side_column  = -1;    # of the comment behind the line before, in C++
my $seen_comment = 0;

sub put { print "$_\n" for @_ }

# A description, whose lines have neither stars nor slashes, in the language of Doxygen.
sub description {
    my @out;
    my $item = 0;    # whether the line continues an argument or a result
    for my $line (@_) {
        if ($line =~ /^  (\w+)  +(.*)/) {
            push @out, "\@param $1 $2";
            $item = 1;
        } elsif ($line =~ /^(ZU_SUCCESS|ZU_FAILURE|-?\d+): (.*)/) {
            push @out, "\@retval $1 $2";
            $item = 1;
        } elsif ($line =~ /^Result: (.*)/) {
            push @out, "\@return $1";
            $item = 1;
        } elsif ($line =~ /^See also (.*)/) {
            push @out, "\@see $1";
            $item = 1;
        } elsif ($line =~ /^\s*$/) {
            push @out, '';
            $item = 0;
        } elsif ($item) {
            (my $text = $line) =~ s/^\s+//;
            push @out, "    $text";
        } else {
            push @out, $line;
        }
        $out[-1] =~ s/\b(rules? \d+)/\@ref $c_rules "$1"/g if $is_c;
        # Behind a result, on its line.
        if ($out[-1] =~ s/ See also (.*)//) {
            push @out, "\@see $1";
        }
    }
    return @out;
}

# The opening comment. What it lists by name within a rule becomes a list. The rules of the C interface
# can be pointed to.
sub file_description {
    my $listed = 0;
    return map {
        my $line = $_;
        $line =~ s/^ ?(\d+)\. +/$1. /;
        $line =~ s/^(Rules that hold .*)/\@section ${module}_rules $1/;
        $line =~ s/^-+$//;
        if ($line =~ s/^ {6,}(\w+)  +(?=\S)/    - $1: /) {
            $listed = 1;
        } elsif ($listed && $line =~ /^ {8,}\S/) {
            $line =~ s/^ +/      /;
        } else {
            $listed = 0;
        }
        $line;
    } @_;
}

sub comment { put('/**', (map { " * $_" } @_), ' */') }

sub end_group {
    put('/** @} */') if $in_group;
    $in_group = 0;
}

sub end_module {
    end_group();
    put('/** @} */') if $in_module;
    $in_module = 0;
}

sub begin_section {
    my ($title, @more) = @_;
    ($title, my $rest) = split /[:;] /, $title, 2;
    unshift @more, description(ucfirst $rest . '.'), '' if defined $rest;
    my $begin = $is_c ? '@defgroup ' . $module . '_' . ++$modules . ' ' . ucfirst $title
                      : '@name ' . ucfirst $title;
    comment($begin, @more, '@{');
    $in_module = 1;
}

# The code between a comment and the next empty line.
sub block_below {
    my ($at) = @_;
    my @block;
    push @block, $lines[$at++] while $at < @lines && $lines[$at] !~ /^\s*$/;
    return @block;
}

# Whether a comment above them is about several things at once: fields of which some have a comment of
# their own, or macros.
sub is_group {
    my @block = @_;
    my @fields = grep { /^[^(]*;( +(\/\/|\/\*) .*)?$/ } @block;
    return 1 if @fields > 1 && $block[0] eq $fields[0] && grep { m{; +(//|/\*) } } @fields;
    return 1 < grep { /^#define/ } @block;
}

# A comment on lines of its own; $at is the line below it.
sub standing_comment {
    my ($at, @text) = @_;
    if (!$seen_comment++) {
        comment("\@file $name", file_description(@text));
    } elsif ($text[0] =~ /^---- (.*?)( ----)?$/) {
        my $title = $1;
        shift @text;
        end_module();
        begin_section($title, @text) unless grep { /^ZU_ASSERT/ } block_below($at + 1);
    } elsif ($at < @lines && is_group(block_below($at))) {
        (my $title = join ' ', @text) =~ s/\.$//;
        comment("\@name $title", '@{');
        $in_group = 1;
    } else {
        comment(description(@text));
    }
}

# Doxygen loses its way in what is said to the standard library, and nobody looks for it.
splice @lines, $_, 3
    for reverse grep { "@lines[$_, $_ + 1]" =~ /^template <> struct std::/ } 0 .. $#lines - 2;

for (my $i = 0; $i < @lines; ++$i) {
    my $line = $lines[$i];
    if ($line =~ m{^\s*/\*}) {
        my @text = ($line);
        push @text, $lines[++$i] until $text[-1] =~ m{\*/\s*$};
        s{^\s*/\*+ ?}{}, s{\s*\*/\s*$}{}, s{^\s*\* ?}{} for @text;
        shift @text if $text[0] eq '';
        pop @text if @text && $text[-1] eq '';
        standing_comment($i + 1, @text);
    } elsif ($line =~ m{^(\s*)//( |$)}) {
        my $column = length $1;
        if ($column == $side_column) {    # goes on behind the code
            $line =~ s{//}{///<};
            put($line);
            next;
        }
        my @text;
        while ($i < @lines && $lines[$i] =~ m{^\s*// ?(.*)}) {
            push @text, $1;
            ++$i;
        }
        standing_comment($i--, @text);
    } else {
        $side_column = -1;
        end_group()  if $line =~ /^\s*(\}|$)/;
        end_module() if $line =~ ($is_c ? qr/^#ifdef __cplusplus$/ : qr/^\};$/);
        if ($line !~ /^(#(?!define)|\s*\})/ && $line =~ m{\S.*?(//|/\*) }) {
            $side_column = $-[1] if $1 eq '//';
            $line =~ s{/\* }{/**< } or $line =~ s{// }{///< };
        }
        put($line);
    }
}
end_module();
