# SPDX-License-Identifier: BSD-2-Clause
# What a video's thumbnail is called, whether it is fresh, and where it is made.
package KeystillAll::Thumbnails;
use strict;
use warnings;
use Digest::MD5 qw(md5_hex);
use Fcntl qw(:mode);
use Time::HiRes qw(stat);
use Exporter 'import';

our @EXPORT_OK = qw(folder_of part_of thumbnail_of is_fresh longer_side);

sub folder_of { $_[0] =~ m{^(.*)/}s ? ($1 eq '' ? '/' : $1) : '.' }

# In the folder of the thumbnail, so that one rename puts it in place; hidden, and never too long.
sub part_of { folder_of($_[0]) . '/.keystill-' . md5_hex($_[0]) . '.part' }

# As desktops write it: RFC 3986 with the characters of paths as they are, but for the semicolon.
sub uri_of { 'file://' . $_[0] =~ s{([^A-Za-z0-9_.!~*'()&=+\$,:\@/-])}{sprintf '%%%02X', ord $1}ger }

# The thumbnail's name by a pattern: {} the video's path, {.} without its extension, {/} and {/.}
# the same without folders, {//} its folder, {rel} the path below the folder that was searched,
# {md5} what desktops name thumbnails by.
sub thumbnail_of {
    my ($pattern, $video, $relative) = @_;
    my ($name) = $video =~ m{([^/]*)\z}s;
    my $bare = sub { $_[0] =~ s{(?<=[^/])\.[^./]*\z}{}sr };
    my %parts = ('' => $video, '.' => $bare->($video), '/' => $name, '/.' => $bare->($name),
        '//' => folder_of($video), rel => $relative);
    $parts{md5} = md5_hex(uri_of($video)) if $pattern =~ /\{md5\}/;
    return $pattern =~ s/\{([^{}]*)\}/$parts{$1} \/\/ "{$1}"/ger;
}

# Whole seconds that the text chunk Thumb::MTime of a PNG file states, or undef.
sub stated_time {
    open my $file, '<:raw', $_[0] or return;
    read $file, my $head, 4096;
    # The chunk's length counts its digits: its checksum may begin with one more.
    return unless $head =~ /(.{4})tEXtThumb::MTime\0/s;
    return substr $head, $+[0], unpack('N', $1) - length "Thumb::MTime\0";
}

# Thumbnails in a desktop's cache have to state the very time of their video. Others only have to
# be no older than it, or, when all are to be made again, have to come from this run. A file that a
# power cut has emptied is none.
sub is_fresh {
    my ($settings, $thumbnail, $video_time) = @_;
    my ($mode, $size, $written, $placed) = (stat $thumbnail)[2, 7, 9, 10] or return 0;
    return 0 unless S_ISREG($mode) && $size;
    return $placed >= $settings->{since} if $settings->{since};
    return $written >= $video_time unless $settings->{in_cache};
    return (stated_time($thumbnail) // -1) == int $video_time;
}

# The longer side of a JPEG or PNG file in pixels, 0 of any other.
sub longer_side {
    return 0 unless -f $_[0];  # a pipe would have to be waited for
    open my $file, '<:raw', $_[0] or return 0;
    read $file, my $head, 1 << 18;
    my ($width, $height) = (0, 0);
    if ($head =~ /^\x89PNG.{12}(.{4})(.{4})/s) {
        ($width, $height) = map { unpack 'N', $_ } $1, $2;
    } elsif ($head =~ /^\xff\xd8/) {
        # Marker segments up to the frame header: SOF0 to SOF15 without DHT, JPG and DAC.
        my $at = 2;
        while ($at + 9 <= length $head) {
            my ($marker, $length, $precision, $rows, $columns) = unpack "x$at n n C n n", $head;
            last if $marker < 0xff00;
            ($height, $width) = ($rows, $columns), last
                if $marker >= 0xffc0 && $marker <= 0xffcf && $marker !~ /^(65476|65480|65484)$/;
            $at += 2 + $length;
        }
    }
    return $width > $height ? $width : $height;
}

1;
