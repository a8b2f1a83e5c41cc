# Sourced by the scripts that start the application on a demo site (a
# throw-away home and keyring around them: run-isolated.sh --keyring).
# demo_site <build bin folder> <first site's name>: a repository of two
# commits in $repo (removed on exit), and two sites of it, the first current.
demo_site() {
    local bin=$1 name=$2
    repo=$(mktemp -d "${TMPDIR:-/tmp}/tarnwell-demo.XXXXXX")
    trap 'rm -rf "$repo"' EXIT
    local commit=(git -C "$repo" -c user.name=Ann -c user.email=ann@example.org commit -qm)
    git -C "$repo" init -q -b main
    mkdir -p "$repo/css" "$repo/img"
    echo '<h1>Hello</h1>' >"$repo/index.html"
    echo 'body { font-family: sans-serif }' >"$repo/css/site.css"
    echo '<svg xmlns="http://www.w3.org/2000/svg"/>' >"$repo/img/logo.svg"
    echo 'About us' >"$repo/about.html"
    git -C "$repo" add -A
    "${commit[@]}" "First version"
    echo '<h1>Hello again</h1>' >"$repo/index.html"
    echo 'News' >"$repo/news.html"
    git -C "$repo" rm -q about.html
    git -C "$repo" add -A
    "${commit[@]}" "News page"

    echo secret | "$bin/tarnwell-cli" add --name "$name" --folder "$repo" --host ftp.example.org \
        --user webmaster --remote-path www/ --password-stdin >/dev/null
    echo secret | "$bin/tarnwell-cli" add --name "Shop" --folder "$repo" --protocol SFTP --host shop.example.com \
        --user deploy --remote-path '~/htdocs/' --password-stdin >/dev/null
    "$bin/tarnwell-cli" use 0 >/dev/null
}
