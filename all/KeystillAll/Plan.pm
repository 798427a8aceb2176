# SPDX-License-Identifier: BSD-2-Clause
# Which videos need a thumbnail, and which of them make up a job.
package KeystillAll::Plan;
use strict;
use warnings;
use Digest::MD5 qw(md5_hex);
use Fcntl qw(:flock O_NOFOLLOW O_RDWR);
use KeystillAll::Names qw(pack_job settings_of);
use KeystillAll::Thumbnails qw(folder_of is_fresh thumbnail_of);
use List::Util qw(max min);
use Time::HiRes qw(stat);

my $kFewestVideosPerJob = 32;     # where there are enough
my $kMostVideosPerJob = 1024;
my $kMostBytesPerJob = 20_000;    # GNU parallel counts up to 63,664, each quoted on the way

# Removes unfinished files that nobody holds from a folder of thumbnails.
sub sweep {
    opendir my $folder, $_[0] or return;
    for my $part (map { "$_[0]/$_" } grep { /^\.keystill-[0-9a-f]{32}\.part\z/ } readdir $folder) {
        sysopen my $file, $part, O_RDWR | O_NOFOLLOW or next;
        unlink $part if flock $file, LOCK_EX | LOCK_NB;
    }
}

# For videos that are carried to other hosts: a link to each with a number for a name, which is the
# line of its job, and one that says where the thumbnail goes and how old the video is.
sub plan_links {
    my ($folder, @wanted) = @_;
    for my $i (0 .. $#wanted) {
        my ($video, $thumbnail) = @{ $wanted[$i] };
        my ($ending) = $video =~ /(\.[A-Za-z0-9]+)\z/;
        symlink $video, "$folder/$i$ending" or die "keystill-all: $folder: $!\n";
        symlink +((stat $video)[9] // 0) . " $thumbnail", "$folder/$i.to"
            or die "keystill-all: $folder: $!\n";
        print "$i$ending\n";
    }
}

# plan KEY=VALUE... < FOLDER\0RELATIVE\0... 3> TALLY
# Tells the tally how many videos are to be looked at and how many thumbnails are fresh, then writes
# a line for each job: video and thumbnail in turn. A video whose thumbnail would have another one's
# name comes with an empty one. For a report fresh ones are handed on too.
sub plan {
    my $settings = settings_of(@_);
    my ($shard, $shards) = split /\//, $settings->{shard};
    local $/ = "\0";
    chomp(my @found = <STDIN>);
    my (%seen, %taken, %folders, @wanted);
    my $fresh = 0;
    my @videos;
    while (my ($folder, $relative) = splice @found, 0, 2) {
        my $video = $folder =~ m{/\z} ? "$folder$relative" : "$folder/$relative";
        push @videos, [$video, $relative] unless $seen{$video}++;
    }
    for (sort { $a->[0] cmp $b->[0] } @videos) {
        my ($video, $relative) = @$_;
        my $thumbnail = thumbnail_of($settings->{pattern}, $video, $relative);
        $thumbnail = "$settings->{here}/$thumbnail" if $thumbnail !~ m{^/};
        next if hex(substr md5_hex($thumbnail), 0, 8) % $shards != $shard - 1;
        sweep(folder_of($thumbnail)) unless $folders{folder_of($thumbnail)}++;
        my $time = (stat $video)[9] // next;
        if ($taken{$thumbnail}++) {
            push @wanted, [$video, ''];
        } elsif (!$settings->{report} && is_fresh($settings, $thumbnail, $time)) {
            ++$fresh;
        } else {
            push @wanted, [$video, $thumbnail];
        }
    }
    open my $tally, '>&=', 3 or die "keystill-all: the tally: $!\n";
    printf $tally "found\t%d\t%d\t\n", scalar @wanted, $fresh;
    close $tally;
    return plan_links($settings->{links}, @wanted) if $settings->{links};
    # Large shares first, so that little is started; small ones at last, so that all end together.
    my $jobs = $settings->{jobs};
    my $least = min($kFewestVideosPerJob, int(@wanted / (4 * $jobs)) + 1);
    while (@wanted) {
        my $share = $jobs > 1 ? max($least, int(@wanted / (2 * $jobs))) : @wanted;
        $share = min($share, scalar @wanted, $kMostVideosPerJob);
        my $job = pack_job(map { @$_ } @wanted[0 .. $share - 1]);
        while (length $job > $kMostBytesPerJob && $share > 1) {
            $share = int(($share + 1) / 2);
            $job = pack_job(map { @$_ } @wanted[0 .. $share - 1]);
        }
        print "$job\n";
        splice @wanted, 0, $share;
    }
}

1;
