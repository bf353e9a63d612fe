-- The sample: a small guild of studios and its people, their letters and exhibits, and a calendar.
CREATE TABLE studio (
  studio_id  NUMBER(4)     NOT NULL PRIMARY KEY,
  name       VARCHAR2(30)  NOT NULL,
  city       VARCHAR2(20),
  opened     DATE
);

CREATE TABLE person (
  person_id  NUMBER(4)     NOT NULL PRIMARY KEY,
  name       VARCHAR2(30)  NOT NULL,
  craft      VARCHAR2(20),
  mentor_id  NUMBER(4),
  studio_id  NUMBER(4),
  joined     DATE,
  pay        NUMBER(8,2),
  bonus      NUMBER(7,2)
);

CREATE TABLE calendar (
  day          DATE          NOT NULL PRIMARY KEY,
  weekday      VARCHAR2(9)   NOT NULL,
  day_of_year  NUMBER(3)     NOT NULL,
  iso_week     NUMBER(2)     NOT NULL,
  remark       VARCHAR2(40)
);

CREATE TABLE letter (
  letter_id  NUMBER(4)     NOT NULL PRIMARY KEY,
  title      VARCHAR2(40)  NOT NULL,
  written    DATE,
  body       LONG
);

CREATE TABLE exhibit (
  exhibit_id   NUMBER(4)     NOT NULL PRIMARY KEY,
  title        VARCHAR2(40)  NOT NULL,
  description  CLOB,
  picture      BLOB
);

CREATE TABLE sample_loaded (
  finished  DATE  NOT NULL
);
