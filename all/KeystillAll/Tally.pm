# SPDX-License-Identifier: BSD-2-Clause
# Counts what becomes of the videos, and says so.
package KeystillAll::Tally;
use strict;
use warnings;
use KeystillAll::Names qw(pack_names settings_of);
use KeystillAll::Tasks qw(finish prepare);
use Time::HiRes qw(time);

# Puts a thumbnail that was brought back into place, unless another run has done it. Returns the
# names, what happened and why.
sub place {
    my ($settings, $started, $link, $status, $reason) = @_;
    my $number = "$settings->{links}/" . $link =~ s/\..*//r;
    my ($video_time, $thumbnail) = readlink("$number.to") =~ /^(\S+) (.*)\z/s;
    my $video = readlink "$settings->{links}/$link";
    return ($video, $thumbnail, $status, $reason) if $status ne 'made';
    my ($task, @result) = prepare($settings, $video, $thumbnail, $settings->{seconds});
    if ($task) {
        @$task{qw(started video_time)} = ($started, $video_time);
        my $is_there = open my $carried, '<:raw', "$number.jpg";
        my $jpeg = $is_there ? do { local $/; <$carried> } : '';
        my $is_whole = length $jpeg == (syswrite($task->{file}, $jpeg) // -1);
        @result = finish($settings, $task, $is_whole ? 0 : 2, 'It did not come back whole.');
    }
    $result[0] = 'failed' if $result[0] eq 'busy';
    return ($video, $thumbnail, $result[0], $result[1] // '-');
}

# Progress as one line: on a terminal a bar that is drawn again, else one more line.
sub show_progress {
    my ($done, $total, $seconds) = @_;
    my $rate = $done / ($seconds || 1);
    my $left = $rate ? ($total - $done) / $rate : 0;
    my $text = sprintf '%d of %d, %.0f a second, %d:%02d left', $done, $total, $rate, $left / 60,
        $left % 60;
    my $bar = '#' x (25 * $done / $total);
    print STDERR -t STDERR ? sprintf "\r\e[K[%-25s] %s", $bar, $text : "$text\n";
}

# tally KEY=VALUE... < lines of plan and make
# Shows progress, then says how many thumbnails were made, were fresh, and why the others are
# missing. Status 1 when some are.
sub tally {
    my $settings = settings_of(@_);
    my $total;
    my %count = (made => 0, fresh => 0, failed => 0);
    my (%seen, %reasons, @pictures);
    my ($started, $pause) = (time, -t STDERR ? 0.2 : 10);
    my $shown = $started;
    while (<STDIN>) {
        chomp;
        my ($status, $reason, $video, $thumbnail) = split /\t/, $_, -1;
        if ($status eq 'found') {
            ($total, $count{fresh}) = ($reason, $video);
            next;
        }
        # Once a host died, a video may come again: what was said first counts.
        next if !defined $thumbnail || $seen{$video}++;
        if ($settings->{links}) {
            ($video, $thumbnail, $status, $reason) = place($settings, $started, $video, $status, $reason);
            ($video, $thumbnail) = map { pack_names($_) } $video, $thumbnail;
        }
        ++$count{$status};
        push @{ $reasons{$reason} }, $video if $status eq 'failed';
        push @pictures, [$video, $thumbnail] if $status ne 'failed' && $settings->{report} ne '';
        print STDERR "$video: $reason\n" if $status eq 'failed' && $settings->{verbose};
        if (!$settings->{quiet} && time - $shown >= $pause) {
            show_progress(scalar keys %seen, $total, time - $started);
            $shown = time;
        }
    }
    print STDERR "\r\e[K" if -t STDERR && !$settings->{quiet};
    exit 1 unless defined $total;  # the plan has said why
    my $lost = $total - keys %seen;
    print "made $count{made}, fresh $count{fresh}, failed $count{failed}",
        $lost ? ", not reached $lost\n" : "\n";
    my @reasons = sort { @{ $reasons{$b} } <=> @{ $reasons{$a} } || $a cmp $b } keys %reasons;
    printf "%7d  %s\n", scalar @{ $reasons{$_} }, $_ for @reasons;
    if ($settings->{report} ne '') {
        require KeystillAll::Report;
        KeystillAll::Report::report($settings->{report}, \@pictures, \%reasons, @reasons);
    }
    exit($count{failed} || $lost ? 1 : 0);
}

1;
