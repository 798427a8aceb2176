# SPDX-License-Identifier: BSD-2-Clause
# Runs the programs that make thumbnails, under limits of memory and time.
package KeystillAll::Tools;
use strict;
use warnings;
use Digest::MD5 qw(md5_hex);
use Time::HiRes qw(sleep time);
use Exporter 'import';

our @EXPORT_OK = qw(run_tools end_tools);

my $shell;    # the process that runs, for whoever ends this one

sub end_tools { kill 'KILL', -$shell, $shell if $shell }

sub quoted { join ' ', map { "'" . s/'/'\\''/gr . "'" } @_ }

# What is done for each video, as "$1", and its unfinished file, as "$2": a name of its handle,
# which whoever writes to the folder cannot give to another file.
sub command_of {
    my ($settings) = @_;
    my $arguments = quoted(@{ $settings->{arguments} });
    return qq{keystill-thumbnailer $arguments -i "\$1" -o - >"\$2"; s=\$?} unless $settings->{exact};
    return qq{keystill "\$1" "\$2" $arguments; s=\$?; }
        . qq{[ \$s -ne 1 ] || keystill-explain -- "\$1" "\$2" $arguments};
}

# Starts a shell, in a process group of its own, on videos and files in turn. It starts the tools,
# since that takes it a fraction of the time that it takes a process of this one's size. All that
# they say comes back through a pipe, and after each tool a line with the mark and its status.
# The tools inherit the handles of the locks, and limits of memory and time.
sub start_shell {
    my ($settings, $mark, @names) = @_;
    pipe my $out, my $in or die "pipe: $!\n";
    $shell = fork // die "fork: $!\n";
    return $out if $shell;
    setpgrp;
    open STDOUT, '>&', $in;
    open STDERR, '>&', $in;
    my $kib = 1024 * $settings->{memory};
    # Where limits are lower already, they stay.
    my $script = "{ ulimit -v $kib; ulimit -t $settings->{seconds}; } 2>/dev/null; "
        . 'while [ $# -gt 0 ]; do ' . command_of($settings)
        . qq{; printf '\\n%s %d\\n' $mark \$s || exit; shift 2; done};
    exec '/bin/sh', '-c', $script, 'sh', @names;
}

# Runs the tool on videos and their unfinished files in turn, and calls $done for each with its
# place, its status, -1 when it took too long, and the first 64 KiB of what it said. Calls
# $meanwhile once when the first runs.
sub run_tools {
    my ($settings, $done, $meanwhile, @names) = @_;
    my $mark = md5_hex(rand() . time . $$);
    for (my $at = 0; 2 * $at < @names;) {
        my $out = start_shell($settings, $mark, @names[2 * $at .. $#names]);
        $meanwhile->();
        $meanwhile = sub { };
        my ($said, $end) = ('', time + $settings->{seconds});
        while (1) {
            vec(my $waiting = '', fileno $out, 1) = 1;
            my $left = $end - time;
            last if $left <= 0 || !select $waiting, undef, undef, $left;
            sysread $out, $said, 1 << 16, length $said or last;
            while ($said =~ s/\A(.*?)\n$mark (\d+)\n//s) {
                $done->($at++, $2, substr $1, 0, 1 << 16);
                $end = time + $settings->{seconds};
            }
            substr $said, 1 << 16, -100, '' if length $said > 1 << 17;
            # Whoever wakes for each video takes turns with the tools; the last ones are not waited for.
            sleep 0.03 if @names - 2 * $at > 32;
        }
        kill 'KILL', -$shell, $shell;
        waitpid $shell, 0;
        $shell = undef;
        # Whatever ended the shell early, it was this one's turn.
        if (2 * $at < @names) { $done->($at++, $end <= time ? -1 : 128 + ($? & 127), '') }
    }
}

1;
