-- title: A directory contains one of another site
-- severity: low
-- category: housekeeping
-- why: The users of one site see the files of the other.
-- fix: Move one of the directories, or make the sites one.
-- requires: ftp_site.path ftp_directory.path
-- columns: path text identifying, contains text
with places as (
  select object_id, server, identifier as site, path, rtrim(fold(path), '\') || '\' as folded from ftp_site
  union all
  select object_id, server, site_identifier, path, rtrim(fold(path), '\') || '\' from ftp_directory),
-- The order in which a directory is followed by what it contains. A directory of several sites has site null.
ordered as (
  select server, folded, lag(site) over following = site as has_site_of_previous,
         lead(folded) over following as next, lead(site) over following as next_site
  from (select server, folded, case when min(site) = max(site) then min(site) end as site
        from places where path <> '' group by server, folded) paths
  window following as (partition by server order by folded)),
-- Of another site than the next directory: the first one after that.
others as (
  select server, folded, next, next_site,
         min(case when has_site_of_previous then null else folded end) over (
           partition by server order by folded desc rows between unbounded preceding and 2 preceding) as later
  from ordered)
select object_id, case when path is null then null else starts_with(contains, folded) end as holds, path, contains
from (select p.object_id, p.path, n.folded, case when n.next_site = p.site then n.later else n.next end as contains
      from places p
      left join others n on n.server = p.server and n.folded = p.folded and p.path <> '') candidates
where path is null or contains is not null
