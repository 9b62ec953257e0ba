"""The files of the page in the browser, through the driver's socket."""

import json

import support


class Page(support.ShelfTest):
    def fetch(self, target, method="GET", body=None, **headers):
        connection = support.UnixConnection(self.shelf.socket)
        self.addCleanup(connection.close)
        connection.request(method, target, body=body, headers=headers)
        answer = connection.getresponse()
        return answer, answer.read()

    def test_through_the_socket(self):
        self.add_empty()
        self.start()
        page, text = self.fetch("/")
        self.assertEqual((page.status, page.getheader("Content-Type")),
                         (200, "text/html; charset=utf-8"))
        self.assertIn("default-src 'none'", page.getheader("Content-Security-Policy"))
        self.assertNotIn("unsafe", page.getheader("Content-Security-Policy"))
        self.assertEqual(page.getheader("X-Content-Type-Options"), "nosniff")
        self.assertEqual(text, (support.SOURCE / "client" / "panel" / "index.html").read_bytes())
        script, _ = self.fetch("/panel/chart.min.js")
        self.assertEqual((script.status, script.getheader("Content-Type")),
                         (200, "text/javascript; charset=utf-8"))
        same, nothing = self.fetch("/", **{"If-None-Match": page.getheader("ETag")})
        self.assertEqual((same.status, nothing), (304, b""))
        other, _ = self.fetch("/", **{"If-None-Match": '"another"'})
        self.assertEqual(other.status, 200)
        head, nothing = self.fetch("/panel/main.js", method="HEAD")
        self.assertEqual((head.status, nothing), (200, b""))

    def test_nothing_else_is_there(self):
        self.add_empty()
        self.start()
        for target in ("/panel/", "/panel/none.js", "/panel/../etc/passwd", "/panel/index.html/x",
                       "/index.html", "/panel/%2e%2e/main.js"):
            self.assertEqual(self.fetch(target)[0].status, 404, target)
        for target in ("/", "/panel/main.js"):
            answer, _ = self.fetch(target, method="POST")
            self.assertEqual((answer.status, answer.getheader("Allow")), (405, "GET, HEAD"))

    def test_no_file_takes_a_query(self):
        self.add_empty()
        self.start()
        for target in ("/?x=1", "/panel/main.js?v=2", "/panel/explanations.json?x"):
            answer, body = self.fetch(target)
            self.assertEqual((answer.status, answer.getheader("Content-Type")),
                             (400, "application/problem+json"), target)
            self.assertIn("expected no query", json.loads(body)["detail"])
        self.assertEqual(self.fetch("/?")[0].status, 200)

    def test_no_page_changes_anything(self):
        """A web page somewhere else may send requests to a socket that is passed on to a browser."""
        cage = self.add_module("iivi-new-map")
        self.start()
        for target in support.changes(cage.name):
            answer, body = self.fetch(target, method="POST", body="{}",
                                      **{"Origin": "http://elsewhere.example"})
            self.assertEqual((answer.status, "may only look" in body.decode()), (403, True), target)
        self.assertEqual(self.fetch("/v1/health", **{"Origin": "null"})[0].status, 200)

    def test_explanations_are_those_of_the_command_line(self):
        self.add_empty()
        self.start()
        said = json.loads(self.fetch("/panel/explanations.json")[1])
        printed = support.run(support.LUMCTL, "explain", "flag-10").stdout
        for part in said["flag-10"].values():
            self.assertIn(part.split(";")[0][:30], printed)
