# SPDX-License-Identifier: BSD-2-Clause
# A thumbnail that has to be made: its unfinished file is locked while a tool writes to it, and put
# into place by one rename. Any number of runs may want the same one.
package KeystillAll::Tasks;
use strict;
use warnings;
use Fcntl qw(:flock O_CREAT O_NOFOLLOW O_RDWR F_SETFD);
use KeystillAll::Thumbnails qw(folder_of is_fresh longer_side part_of);
use Time::HiRes qw(stat utime time);
use Exporter 'import';

our @EXPORT_OK = qw(prepare finish drop_unfinished);

my %unfinished;    # files that this process has locked

sub drop_unfinished { unlink keys %unfinished }

# With those that it lies in. What cannot be made shows when a file is.
sub make_folder {
    my ($folder, $mode) = @_;
    return if -d $folder || $folder eq '/';
    make_folder(folder_of($folder), $mode);
    mkdir $folder, $mode;
}

# The unfinished file, open and locked; undef when another process has it and there is no wait.
# The tool inherits the handle: while it writes, even an orphan of a killed run, nobody else does.
# In a folder that others write to, a link under this name may lead to somebody's file.
sub lock_part {
    my ($part, $seconds) = @_;
    local $SIG{ALRM} = sub { die "busy\n" };
    while (1) {
        sysopen my $file, $part, O_RDWR | O_CREAT | O_NOFOLLOW, 0666 or return (undef, "$!");
        my $held = eval {
            alarm $seconds;
            flock($file, $seconds ? LOCK_EX : LOCK_EX | LOCK_NB);
        };
        alarm 0;
        return (undef, 'busy') unless $held;
        # Who held it before has renamed or removed it: then this is another file.
        my ($device, $inode) = stat $file;
        my ($device_now, $inode_now) = stat $part;
        next unless defined $inode_now && "$device $inode" eq "$device_now $inode_now";
        fcntl $file, F_SETFD, 0;
        return ($file, '');
    }
}

# What another process that inherits the handle can open the file by; undef where /proc is not there.
sub handle_of {
    my $name = '/proc/self/fd/' . fileno $_[0];
    return -e $name ? $name : undef;
}

# Locks the unfinished file of a thumbnail that has to be made. Returns what is to be done, or, as
# $done wants it, what has become of it: fresh, failed or busy, and why.
sub prepare {
    my ($settings, $video, $thumbnail, $seconds) = @_;
    return (undef, 'failed', 'Its thumbnail would have the name of another video\'s.') if $thumbnail eq '';
    my $started = time;
    my $video_time = (stat $video)[9] // return (undef, 'failed', "The video is gone: $!.");
    return (undef, 'fresh') if is_fresh($settings, $thumbnail, $video_time);
    return (undef, 'failed', 'A larger picture has the name of its thumbnail, and stays.')
        if $settings->{side} && longer_side($thumbnail) > $settings->{side};
    make_folder(folder_of($thumbnail), $settings->{in_cache} ? 0700 : 0777);
    my $part = part_of($thumbnail);
    my ($file, $fault) = lock_part($part, $seconds);
    return (undef, 'busy', 'Another run is making it.') if $fault eq 'busy';
    return (undef, 'failed', "The thumbnail cannot be created: $fault.") if $fault;
    # Somebody else may have made it before the lock was there to have.
    unlink $part and return (undef, 'fresh') if is_fresh($settings, $thumbnail, $video_time);
    truncate $file, 0 if -s $file;
    $unfinished{$part} = 1;
    return { video => $video, thumbnail => $thumbnail, part => $part, file => $file,
        handle => handle_of($file) // $part, started => $started, video_time => $video_time };
}

# What changed while it was looked at is looked at again, a video from the future only once. The
# time that a file has anyway will do for all others, and costs no more work on the disk.
sub date {
    my ($file, $video, $started, $video_time) = @_;
    my $is_past = $started > $video_time;
    return if $is_past && ((stat $video)[9] // 0) == $video_time;
    my $time = $is_past ? $started : $video_time + 0.001;
    utime $time, $time, $file;
}

# One sentence that says why there is no thumbnail.
sub reason_of {
    my ($settings, $status, $said, $video) = @_;
    return "It takes more than $settings->{seconds} seconds." if $status == -1;
    return 'The program was ended by signal ' . ($status - 128) . '.' if $status > 128;
    if ($settings->{exact} && $status == 1) {
        return $said =~ /^There will be no thumbnail\. ([^\n]*)/m ? $1 : 'No reason was found.';
    }
    $said =~ s/\n+\z//;
    return $said =~ /^(?:keystill-thumbnailer: )?(?:\Q$video\E: )?([^\n]+)/ ? $1 : 'No reason was given.';
}

# Puts what the tool wrote into place. Returns made, or failed and why.
sub finish {
    my ($settings, $task, $status, $said) = @_;
    my ($file, $part) = @$task{qw(file part)};
    my $reason = '';
    if ($status != 0) {
        $reason = reason_of($settings, $status, $said, $task->{video});
    } elsif (!-s $file) {
        $reason = 'The thumbnail is empty.';
    } else {
        chmod 0600, $file if $settings->{in_cache};
        date($file, @$task{qw(video started video_time)});
        rename $part, $task->{thumbnail} or $reason = "The thumbnail cannot be created: $!.";
    }
    unlink $part if $reason;
    delete $unfinished{$part};
    close $file;
    return $reason ? ('failed', $reason) : 'made';
}

1;
