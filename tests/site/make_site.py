"""Makes the site for the other tests, as scripts/site does."""

import places
import site_run

if __name__ == "__main__":
    site_run.make(places.REPOSITORY, places.HOST, places.WINE_PREFIX, places.SITE, places.SECONDS)
