# SPDX-License-Identifier: BSD-2-Clause
# Makes the thumbnails of a job.
package KeystillAll::Make;
use strict;
use warnings;
use KeystillAll::Names qw(pack_job pack_names settings_of unpack_job unpack_names);
use KeystillAll::Tasks qw(drop_unfinished finish prepare);
use KeystillAll::Tools qw(end_tools run_tools);
use List::Util qw(max min);
use Time::HiRes qw(time);

my $kMostVideosPerShell = 128;    # a job holds the locks of twice as many

sub end_early {
    end_tools();
    drop_unfinished();
    exit 1;
}

sub most_open_files {
    open my $limits, '<', '/proc/self/limits' or return 1024;
    return (join '', <$limits>) =~ /^Max open files\s+(\d+)/m ? $1 : 1024;
}

# make KEY=VALUE... VIDEO,THUMBNAIL,...
# A line for each: what happened, why, and both names, with tabs in between. What another run is
# making is left for the end, when that has most likely done it.
sub make {
    my $batch = pop;
    my $settings = settings_of(@_);
    $settings->{arguments} = [unpack_names($settings->{arguments})];
    open STDIN, '<', '/dev/null' or die "/dev/null: $!\n";
    $SIG{$_} = \&end_early for qw(HUP INT TERM PIPE);
    my ($said, $when) = ('', time);
    my $tell = sub {
        my ($video, $thumbnail, $status, $reason) = @_;
        ($reason //= '-') =~ s/[\x00-\x1f\x7f]+/ /g;
        my $line = join("\t", $status, $reason, pack_names($video), pack_names($thumbnail)) . "\n";
        # Jobs share a pipe, which keeps apart what is written in one go, up to 4096 bytes.
        # Writing seldom lets the others sleep.
        if (length($said) + length($line) > 4096 || time - $when > 0.5) {
            syswrite STDOUT, $said;
            ($said, $when) = ('', time);
        }
        $said .= $line;
    };
    my @pending = unpack_job($batch);
    my @busy;
    my $most = min($kMostVideosPerShell, max(1, int(most_open_files() / 2) - 20));
    my $prepare_some = sub {
        my @tasks;
        while (@tasks < $most && @pending) {
            my ($video, $thumbnail) = splice @pending, 0, 2;
            my ($task, @result) = prepare($settings, $video, $thumbnail, 0);
            if ($task) { push @tasks, $task }
            elsif ($result[0] eq 'busy') { push @busy, $video, $thumbnail }
            else { $tell->($video, $thumbnail, @result) }
        }
        return @tasks;
    };
    my @tasks = $prepare_some->();
    while (@tasks) {
        my @next;
        my $done = sub {
            my $task = $tasks[$_[0]];
            $tell->(@$task{qw(video thumbnail)}, finish($settings, $task, @_[1, 2]));
        };
        run_tools($settings, $done, sub { @next = $prepare_some->() },
            map { @$_{qw(video handle)} } @tasks);
        @tasks = @next;
    }
    # The other run holds so many at once. One at a time, nobody waits for who waits.
    my $patience = 2 * $kMostVideosPerShell * $settings->{seconds} + 5;
    while (my ($video, $thumbnail) = splice @busy, 0, 2) {
        my ($task, @result) = prepare($settings, $video, $thumbnail, $patience);
        run_tools($settings, sub { @result = finish($settings, $task, @_[1, 2]) }, sub { },
            @$task{qw(video handle)}) if $task;
        $result[0] = 'failed' if $result[0] eq 'busy';
        $tell->($video, $thumbnail, @result);
    }
    syswrite STDOUT, $said;
}

# carried-make KEY=VALUE... VIDEO
# The same on another host, where the video is in this folder and the thumbnail is waited for.
sub carried_make {
    my $video = pop;
    my $thumbnail = $video =~ s/\.[^.]*\z/.jpg/r;
    make(@_, pack_job($video, $thumbnail));
    open my $file, '>>', $thumbnail;
}

1;
