# SPDX-License-Identifier: BSD-2-Clause
# Names travel between the parts of keystill-all as text: bytes other than A-Z a-z 0-9 _ . / - as %XX,
# several names joined by commas. No shell on the way has anything to quote in them. In a job each
# name comes as the number of bytes at its start that it shares with the one before, a colon and the
# rest. Settings come as KEY=VALUE.
package KeystillAll::Names;
use strict;
use warnings;
use Exporter 'import';

our @EXPORT_OK = qw(pack_names unpack_names pack_job unpack_job settings_of);

sub pack_names { join ',', map { s{([^A-Za-z0-9_./-])}{sprintf '%%%02X', ord $1}ger } @_ }
sub unpack_names { map { s/%(..)/chr hex $1/ger } split /,/, $_[0], -1 }

sub pack_job {
    my $before = '';
    return join ',', map {
        my $shared = ($before ^ $_) =~ /^(\0+)/ ? length $1 : 0;
        $before = $_;
        "$shared:" . pack_names(substr $_, $shared);
    } @_;
}

sub unpack_job {
    my $before = '';
    return map {
        my ($shared, $rest) = split /:/, $_, 2;
        $before = substr($before, 0, $shared) . $rest;
    } unpack_names($_[0]);
}

sub settings_of {
    my %settings = map { split /=/, $_, 2 } @_;
    return \%settings;
}

1;
