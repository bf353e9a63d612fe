PROMPT
PROMPT People, their studios and mentors; those without either are there too
SELECT p.name, NVL(p.craft, '(none yet)') craft, s.name studio, m.name mentor, p.pay
  FROM person p
  LEFT JOIN studio s ON s.studio_id = p.studio_id
  LEFT JOIN person m ON m.person_id = p.mentor_id
 ORDER BY p.pay DESC, p.name;

PROMPT
PROMPT Pay by studio: an aggregate leaves NULLs out
SELECT s.name studio, COUNT(p.person_id) people, COUNT(p.bonus) with_bonus,
       SUM(p.pay) pay, MAX(p.bonus) best_bonus
  FROM studio s
  LEFT JOIN person p ON p.studio_id = s.studio_id
 GROUP BY s.name
 ORDER BY people DESC, studio;

PROMPT
PROMPT Weekdays of the calendar
SELECT weekday, COUNT(*) days, MIN(day) first_day, MAX(day) last_day
  FROM calendar
 GROUP BY weekday
 ORDER BY days DESC, first_day;

PROMPT
PROMPT Every leap day
SELECT day, weekday, day_of_year, iso_week, remark
  FROM calendar
 WHERE TO_CHAR(day, 'MM-DD') = '02-29'
 ORDER BY day;

PROMPT
PROMPT The people who joined on a day that the calendar remarks on
SELECT p.name, p.joined, c.weekday, c.remark
  FROM person p
  JOIN calendar c ON c.day = p.joined
 WHERE c.remark IS NOT NULL
 ORDER BY p.joined;

PROMPT
PROMPT Nights at the end of the century
SELECT TO_CHAR(day, 'DD.MM.YYYY') day, weekday, day_of_year
  FROM calendar
 WHERE day BETWEEN TO_DATE('1999-12-29', 'YYYY-MM-DD') AND TO_DATE('2000-01-03', 'YYYY-MM-DD')
 ORDER BY 3 DESC;

PROMPT
PROMPT Letters, whose bodies are LONG values
SELECT letter_id, title, written, body
  FROM letter
 ORDER BY letter_id;

PROMPT
PROMPT Exhibits, whose texts and pictures are CLOB and BLOB values
SELECT exhibit_id, title, description, picture
  FROM exhibit
 ORDER BY exhibit_id;
