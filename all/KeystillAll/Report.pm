# SPDX-License-Identifier: BSD-2-Clause
# The page with all thumbnails and failures.
package KeystillAll::Report;
use strict;
use warnings;
use Fcntl qw(O_CREAT O_NOFOLLOW O_RDWR O_TRUNC);
use KeystillAll::Names qw(pack_names unpack_names);
use KeystillAll::Thumbnails qw(part_of);
use MIME::Base64 qw(encode_base64);

# Names are bytes; those of one that is no UTF-8 appear as in addresses.
sub escape_html {
    my ($text) = @_;
    ($text) = pack_names($text) unless utf8::decode(my $copy = $text);
    return $text =~ s/&/&amp;/gr =~ s/</&lt;/gr =~ s/>/&gt;/gr =~ s/"/&quot;/gr;
}

# Writes one page that needs no other file. Thumbnails are handed to the browser as they come into
# view, since it would decode all of a page's own pictures at once.
sub report {
    my ($path, $pictures, $reasons, @order) = @_;
    my $part = part_of($path);
    my $fail = sub {
        print STDERR "keystill-all: $path: $!\n";
        unlink $part;
        exit 2;
    };
    sysopen my $page, $part, O_RDWR | O_CREAT | O_TRUNC | O_NOFOLLOW, 0666 or $fail->();
    my $failed = 0;
    $failed += @{ $reasons->{$_} } for @order;
    printf $page <<'HTML', scalar @$pictures, $failed;
<!DOCTYPE html>
<html lang="en"><meta charset="utf-8"><meta name="viewport" content="width=device-width">
<title>Thumbnails</title>
<style>
body { font: 14px sans-serif; margin: 1em; background: #fff; color: #222 }
main { display: grid; grid-template-columns: repeat(auto-fill, minmax(180px, 1fr)); gap: 12px }
figure { margin: 0; content-visibility: auto; contain-intrinsic-size: 180px 170px }
img { display: block; width: 100%%; height: 140px; object-fit: contain; background: #eee }
figcaption, li { overflow-wrap: anywhere }
</style>
<h1>%d thumbnails, %d videos without</h1>
HTML
    for my $reason (@order) {
        my @videos = map { unpack_names($_) } @{ $reasons->{$reason} };
        printf $page "<details open><summary>%d: %s</summary><ul>\n", scalar @videos, escape_html($reason);
        print $page '<li>', escape_html($_), "\n" for @videos;
        print $page "</ul></details>\n";
    }
    print $page "<main>\n";
    for (sort { $a->[0] cmp $b->[0] } @$pictures) {
        my ($video, $thumbnail) = map { unpack_names($_) } @$_;
        open my $file, '<:raw', $thumbnail or next;
        my $bytes = do { local $/; <$file> };
        my $type = $bytes =~ /^\x89PNG/ ? 'png' : 'jpeg';
        printf $page qq{<figure><img loading="lazy" alt="" data-src="data:image/%s;base64,%s">}
            . "<figcaption>%s</figcaption></figure>\n",
            $type, encode_base64($bytes, ''), escape_html($video);
    }
    print $page <<'HTML';
</main>
<script>
const shown = new IntersectionObserver(entries => {
  for (const entry of entries) if (entry.isIntersecting) {
    entry.target.src = entry.target.dataset.src;
    shown.unobserve(entry.target);
  }
}, { rootMargin: "600px" });
for (const image of document.images) shown.observe(image);
</script>
</html>
HTML
    close $page and rename $part, $path or $fail->();
}

1;
